#pragma once

#include <cstdint>
#include <memory>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

/// Counts what a player's view puts on screen. Thread: main.
class FrameTally {
 public:
  /// Begins to count on the layer of `outputView`; nothing is counted for a view that has none.
  void watch(const std::shared_ptr<UIView>& outputView);
  void forget();

  [[nodiscard]] bool hasLayer() const { return nativeLayer_ || fastLayer_; }

  /// Pictures shown and dropped since watch() or the last call of these.
  [[nodiscard]] uint64_t takeShown();
  [[nodiscard]] uint64_t takeDropped();

  /// Host time at which the present video was first put on screen; 0 when it was not yet.
  [[nodiscard]] int64_t firstPresented() const;

 private:
  [[nodiscard]] uint64_t presentedFrames() const;
  [[nodiscard]] uint64_t droppedFrames() const;

  // One of them at most.
  std::shared_ptr<AVPlayerLayer> nativeLayer_;
  std::shared_ptr<AVSampleBufferDisplayLayer> fastLayer_;
  uint64_t shown_ = 0;
  uint64_t dropped_ = 0;
};

}  // namespace zaffo::feed
