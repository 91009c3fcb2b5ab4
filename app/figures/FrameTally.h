// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

/// Counts what a player's view puts on screen. Thread: main.
class FrameTally {
 public:
  /// Starts counting on the layer of `outputView`; for a view that has none, nothing is counted.
  void watch(const std::shared_ptr<UIView>& outputView);
  void forget();

  /// Pictures shown and dropped since watch() or the previous call.
  [[nodiscard]] uint64_t takeShown();
  [[nodiscard]] uint64_t takeDropped();

  /// Host time at which the current video was first put on screen; 0 before that.
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
