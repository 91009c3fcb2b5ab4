#pragma once

#include <functional>
#include <memory>
#include <string>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

/// What a page does for a fast player that a native one does by itself or says so: it starts again
/// at the end, tells when a seek has been done, and tells when the picture cannot be decoded.
/// Thread: main.
class FastPlayback : public std::enable_shared_from_this<FastPlayback> {
  struct Private {};

 public:
  /// Null when `player` is not a fast one with an item. `failed` is told once, later, why its
  /// picture cannot be shown.
  [[nodiscard]] static std::shared_ptr<FastPlayback> create(
      std::shared_ptr<Player> player, std::function<void(std::string reason)> failed);
  FastPlayback(Private, std::shared_ptr<Player> player,
               std::shared_ptr<AVSampleBufferDisplayLayer> layer,
               std::function<void(std::string reason)> failed);
  /// Ends a seek that is under way.
  ~FastPlayback();

  /// Goes to the start at `rate`.
  void restart(float rate);
  /// Shows the frame at `time`, the last one beyond the end, and goes on at the present rate. Calls
  /// `done` when it is on screen, or will not be.
  void seek(CMTime time, std::function<void()> done);

  /// To be called when the item is said to have ended: whether it has. It has not when it was to
  /// stand still. When it was said early, as it is when the item was read to its end while it stood
  /// still, it goes on at `rate`.
  [[nodiscard]] bool hasEnded(float rate);
  /// How long the last frame has still to stand at `rate`, in nanoseconds.
  [[nodiscard]] int64_t leftOfLastFrame(float rate) const;

  /// Whether there is a picture to be shown; not for a moment after a restart or a seek.
  [[nodiscard]] bool hasPicture() const { return layer_->isReadyForDisplay(); }
  void didPresent();

 private:
  void observeFailure();
  void reportFailure();
  void giveUpSeekLater();
  void endSeek();
  [[nodiscard]] CMTime withinItem(CMTime time) const;
  [[nodiscard]] CVPixelBufferPtr drawn() const;
  [[nodiscard]] double secondsLeft() const;

  const std::shared_ptr<Player> player_;
  const std::shared_ptr<AVSampleBufferDisplayLayer> layer_;
  std::function<void(std::string reason)> failed_;
  KeyValueObservation statusObservation_;
  double lastEnd_ = -1;  // position in seconds at which it was last said to have ended early

  std::function<void()> seekDone_;
  CMTime seekTarget_ = kCMTimeInvalid;
  CVPixelBufferPtr beforeSeek_;
  DispatchTimerPtr seekTimer_;
};

}  // namespace zaffo::feed
