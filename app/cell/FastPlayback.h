#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

/// What a page does for a fast player that a native one does by itself or says so: it shows the
/// item to the end of its last picture, at every rate, keeps the rate through seeks, tells when a
/// seek has been done, and tells when the picture cannot be decoded.
///
///                 setRate > 0              the end is there
///     +----------+ ---------> +---------+ ----------------> +-------+
///     | standing |            | playing |                   | ended |
///     +----------+ <--------- +---------+ <---------------- +-------+
///        ^         setRate 0     ^             setRate > 0      |
///        |                       | the picture is there         |
///        +---------- +---------+-+                              |
///                    | seeking | <-- seek, from any state ------+
///                    +---------+
///
/// While it seeks the player stands still, whatever rate was set: a fast player's seek goes on at
/// the rate that it found, and undoes every other that is set before it is done.
/// Thread: main.
class FastPlayback : public std::enable_shared_from_this<FastPlayback> {
  struct Private {};

 public:
  /// Called on the main thread, never inside a call of create(). Either may let go of the playback.
  struct Events {
    /// Told once, why the picture cannot be shown.
    std::function<void(std::string reason)> failed;
    /// The item's last picture has stood for its time; the player stands still.
    std::function<void()> ended;
  };

  /// Null when `player` is not a fast one with an item.
  [[nodiscard]] static std::shared_ptr<FastPlayback> create(std::shared_ptr<Player> player,
                                                            Events events);
  FastPlayback(Private, std::shared_ptr<Player> player,
               std::shared_ptr<AVSampleBufferDisplayLayer> layer, Events events);
  /// Ends a seek that is under way; the player stands still after one.
  ~FastPlayback();

  /// Plays at `rate` from now on, or as soon as a seek under way shows its picture. 0 stands still.
  void setRate(float rate);
  /// Shows the frame at `time`, the last one beyond the end, and goes on at the rate that is set by
  /// then. Calls `done` (may be empty) when it is on screen, or will not be.
  void seek(CMTime time, std::function<void()> done);

  /// To be called when the item is said to have ended. That says that it was read to its end, and
  /// may come before the end or after it.
  void itemEnded();

  /// Whether there is a picture to be shown; not for a moment after a seek.
  [[nodiscard]] bool hasPicture() const { return layer_->isReadyForDisplay(); }
  void didPresent();

 private:
  void observeFailure();
  void reportFailure();
  void observeTimebase();
  void keepRate();
  void applyRate();
  void awaitEnd();
  void endIsDue();
  void end();
  void giveUpSeekLater();
  void endSeek();
  [[nodiscard]] bool seekHasArrived() const;
  [[nodiscard]] CMTime withinItem(CMTime time) const;
  [[nodiscard]] CVPixelBufferPtr drawn() const;
  [[nodiscard]] double position() const;
  [[nodiscard]] std::optional<double> secondsLeft() const;
  /// A timer on the main queue that calls `block` while this is there.
  [[nodiscard]] DispatchTimerPtr after(int64_t nanoseconds, void (FastPlayback::*block)());

  const std::shared_ptr<Player> player_;
  const std::shared_ptr<AVSampleBufferDisplayLayer> layer_;
  Events events_;
  KeyValueObservation statusObservation_;
  std::shared_ptr<void> timebaseObservation_;

  float rate_ = 0;
  int renewals_ = 0;        // how often a rate that something undid is still set again
  bool isAllRead_ = false;  // from now on the layer's own timebase is enough
  bool hasEnded_ = false;
  double saidAt_ = -1;  // position in seconds at which the item was last said to have ended
  DispatchTimerPtr endTimer_;

  bool isSeeking_ = false;
  uint64_t seekNumber_ = 0;
  std::function<void()> seekDone_;
  CMTime seekTarget_ = kCMTimeInvalid;
  CVPixelBufferPtr beforeSeek_;
  DispatchTimerPtr seekTimer_;
};

}  // namespace zaffo::feed
