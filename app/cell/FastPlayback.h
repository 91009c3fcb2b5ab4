// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include <ZaffoPlayback/ZaffoPlayback.h>

#include "cell/ItemEndObserver.h"
#include "cell/PagePlayback.h"

namespace zaffo::feed {

/// A page's playback of a fast player, doing for it what a native player does by itself: it shows
/// the item to the end of its last picture at every rate, keeps the rate through seeks, and reports
/// when a seek is done and when the picture cannot be decoded.
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
/// While it seeks the player is stopped, whatever rate was set: a fast player's seek goes on at the
/// rate it found, and undoes any other that is set before it is done. Thread: main.
class FastPlayback final : public PagePlayback, public std::enable_shared_from_this<FastPlayback> {
  struct Private {};

 public:
  /// `layer` shows the player's picture.
  [[nodiscard]] static std::shared_ptr<FastPlayback> create(
      std::shared_ptr<Player> player, std::shared_ptr<AVSampleBufferDisplayLayer> layer,
      Events events);
  FastPlayback(Private, std::shared_ptr<Player> player,
               std::shared_ptr<AVSampleBufferDisplayLayer> layer, Events events);
  /// Ends a seek in progress, which leaves the player stopped.
  ~FastPlayback() override;

  void setRate(float rate) override;
  void rewind() override { seek(kCMTimeZero, {}); }
  /// Beyond the end it shows the last frame.
  void seek(CMTime time, std::function<void()> done) override;
  [[nodiscard]] bool hasPicture() const override { return layer_->isReadyForDisplay(); }
  void didPresent() override;

 private:
  void observeItem();
  void itemEnded();
  void fail(std::string reason);
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
  /// A timer on the main queue that calls `block` if this still exists.
  [[nodiscard]] DispatchTimerPtr after(int64_t nanoseconds, void (FastPlayback::*block)());

  const std::shared_ptr<Player> player_;
  const std::shared_ptr<AVSampleBufferDisplayLayer> layer_;
  Events events_;
  std::optional<ItemEndObserver> endObserver_;
  KeyValueObservation statusObservation_;
  std::shared_ptr<void> timebaseObservation_;

  float rate_ = 0;
  int renewals_ = 0;        // how often a rate that was undone will still be set again
  bool isAllRead_ = false;  // from now on the layer's own timebase is enough
  bool hasEnded_ = false;
  double saidAt_ = -1;  // position in seconds at which the item was last reported to have ended
  DispatchTimerPtr endTimer_;

  bool isSeeking_ = false;
  uint64_t seekNumber_ = 0;
  std::function<void()> seekDone_;
  CMTime seekTarget_ = kCMTimeInvalid;
  CVPixelBufferPtr beforeSeek_;
  uint64_t removedBeforeSeek_ = 0;  // images of the layer
  DispatchTimerPtr seekTimer_;
};

}  // namespace zaffo::feed
