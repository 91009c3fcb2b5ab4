// SPDX-License-Identifier: Apache-2.0
#include "cell/FastPlayback.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace zaffo::feed {

namespace {

/// Less than this left to play counts as nothing.
constexpr double kNothing = 1e-6;
/// The player's clock may lag behind that of the timers: checking more often than this is of no
/// use.
constexpr double kShortestWait = 1e-3;
/// An item reported to have ended twice this close together has been read to its end.
constexpr double kSamePlaceSeconds = 0.05;
/// A file may hold less than it promises: the wait for its end is no longer than this.
constexpr double kLongestWait = 5;
/// How long after the end the frame of a seek may still arrive, in nanoseconds.
constexpr int64_t kLastFramePatience = 500'000'000;
/// A seek stops the timebase twice, and several may be in progress: a player that stops more often
/// than this has nothing to play.
constexpr int kMostRenewals = 8;

/// So little before the end of an item that its last frame is shown there.
constexpr CMTime kJustBefore = CMTimeMake(1, 90000);

/// Invalid when unknown.
CMTime endOf(const AVPlayerItem& item) {
  const auto tracks = item.asset()->tracksWithMediaType(AVMediaTypeVideo);
  const CMTime end = tracks.empty() ? kCMTimeInvalid : CMTimeRangeGetEnd(tracks[0]->timeRange);
  const auto isKnown = [](CMTime time) { return CMTIME_IS_NUMERIC(time) && time > kCMTimeZero; };
  if (isKnown(end)) return end;
  return isKnown(item.duration()) ? item.duration() : kCMTimeInvalid;
}

}  // namespace

std::shared_ptr<FastPlayback> FastPlayback::create(
    std::shared_ptr<Player> player, std::shared_ptr<AVSampleBufferDisplayLayer> layer,
    Events events) {
  auto playback = std::make_shared<FastPlayback>(Private{}, std::move(player), std::move(layer),
                                                 std::move(events));
  playback->observeItem();
  playback->observeFailure();
  playback->observeTimebase();
  return playback;
}

FastPlayback::FastPlayback(Private, std::shared_ptr<Player> player,
                           std::shared_ptr<AVSampleBufferDisplayLayer> layer, Events events)
    : player_(std::move(player)), layer_(std::move(layer)), events_(std::move(events)) {}

FastPlayback::~FastPlayback() {
  if (endTimer_) endTimer_->cancel();
  if (seekTimer_) seekTimer_->cancel();
  if (const auto done = std::exchange(seekDone_, nullptr)) done();
}

DispatchTimerPtr FastPlayback::after(int64_t nanoseconds, void (FastPlayback::*block)()) {
  return dispatch_timer_after(nanoseconds, dispatch_get_main_queue(),
                              [weakSelf = weak_from_this(), block] {
                                if (const auto self = weakSelf.lock()) ((*self).*block)();
                              });
}

void FastPlayback::observeItem() {
  const auto item = player_->playerItem();
  if (!item) return;
  endObserver_.emplace(
      item,
      [weakSelf = weak_from_this()] {
        if (const auto self = weakSelf.lock()) self->itemEnded();
      },
      [weakSelf = weak_from_this()](std::string reason) {
        if (const auto self = weakSelf.lock()) self->fail(std::move(reason));
      });
}

// Failure

void FastPlayback::observeFailure() {
  const auto look = [weakSelf = weak_from_this()] {
    dispatch_async(dispatch_get_main_queue(), [weakSelf] {
      if (const auto self = weakSelf.lock()) self->reportFailure();
    });
  };
  statusObservation_ = layer_->observeStatus(look);
  look();  // a player loaded long ago may have failed before anyone looked
}

void FastPlayback::reportFailure() {
  if (layer_->status() != AVQueuedSampleBufferRenderingStatus::Failed) return;
  const auto error = layer_->error();
  fail(error ? error->localizedDescription() : std::string());
}

/// Reported once: both the layer and the item may fail.
void FastPlayback::fail(std::string reason) {
  const auto failed = std::exchange(events_.failed, nullptr);
  if (failed) failed(std::move(reason));
}

// The rate

void FastPlayback::setRate(float rate) {
  rate_ = rate;
  hasEnded_ = false;
  renewals_ = kMostRenewals;
  if (isSeeking_ && seekHasArrived()) return endSeek();
  if (!isSeeking_) applyRate();
}

/// Once everything has been read the session is left alone: it would stop at the last sample.
void FastPlayback::applyRate() {
  const auto timebase = isAllRead_ ? layer_->controlTimebase() : nullptr;
  if (timebase) {
    timebase->setRate(rate_);
  } else {
    player_->setRate(rate_);
  }
  awaitEnd();
}

/// Someone else's seek, such as the pool's when it rewinds an idle player, may be in progress when
/// a player arrives, and stops it later. A stop at the end of the item is announced first.
void FastPlayback::observeTimebase() {
  const auto timebase = layer_->controlTimebase();
  if (!timebase) return;
  timebaseObservation_ = timebase->observeChanges([weakSelf = weak_from_this()] {
    dispatch_async(dispatch_get_main_queue(), [weakSelf] {
      dispatch_async(dispatch_get_main_queue(), [weakSelf] {
        if (const auto self = weakSelf.lock()) self->keepRate();
      });
    });
  });
}

void FastPlayback::keepRate() {
  if (isSeeking_ || hasEnded_ || !(rate_ > 0) || player_->rate() > 0 || renewals_ == 0) return;
  --renewals_;
  applyRate();
}

// The end

/// Seconds of the item from here to the end of its last picture; empty when unknown.
std::optional<double> FastPlayback::secondsLeft() const {
  const auto item = player_->playerItem();
  const CMTime end = item ? endOf(*item) : kCMTimeInvalid;
  if (!CMTIME_IS_NUMERIC(end)) return std::nullopt;
  return std::max(CMTimeGetSeconds(end) - position(), 0.0);
}

double FastPlayback::position() const {
  return CMTimeGetSeconds(player_->currentTime());
}

void FastPlayback::awaitEnd() {
  if (const auto timer = std::exchange(endTimer_, nullptr)) timer->cancel();
  const auto left = secondsLeft();
  if (!left || !(rate_ > 0)) return;
  const double toPlay = isAllRead_ ? std::min(*left, kLongestWait) : *left;
  const double seconds = std::max(toPlay / rate_, kShortestWait);
  endTimer_ = after(static_cast<int64_t>(std::ceil(1e9 * seconds)), &FastPlayback::endIsDue);
}

/// The session counts the seconds to the last sample at rate 1. Told to play on, a session that has
/// read everything reports that at once, and whether it was the end or a failure; one that is still
/// reading reports it later.
void FastPlayback::endIsDue() {
  if (isAllRead_) return end();
  if (!(player_->rate() > 0)) return;
  if (secondsLeft().value_or(0) > kNothing) return awaitEnd();
  player_->setRate(rate_);
}

/// The notification only means that the item was read to its end; it may come before or after the
/// end itself. Before the end the player is told to play on. If the notification comes again at the
/// same place, everything has been read: whatever is left, above all pictures decoded before the
/// last sample and shown after it, then needs nothing but the timebase.
void FastPlayback::itemEnded() {
  if (isSeeking_) return giveUpSeekLater();
  if (!(rate_ > 0) || hasEnded_) return;
  if (secondsLeft().value_or(0) <= kNothing) return end();
  const double said = std::exchange(saidAt_, position());
  isAllRead_ = isAllRead_ || std::abs(saidAt_ - said) < kSamePlaceSeconds;
  applyRate();
}

void FastPlayback::end() {
  if (const auto timer = std::exchange(endTimer_, nullptr)) timer->cancel();
  hasEnded_ = true;
  player_->setRate(0);
  const auto ended = events_.ended;
  if (ended) ended();
}

// Seeks

void FastPlayback::seek(CMTime time, std::function<void()> done) {
  const auto doneBefore = std::exchange(seekDone_, std::move(done));
  if (const auto timer = std::exchange(endTimer_, nullptr)) timer->cancel();
  if (const auto timer = std::exchange(seekTimer_, nullptr)) timer->cancel();
  isAllRead_ = hasEnded_ = false;
  saidAt_ = -1;
  isSeeking_ = true;
  seekTarget_ = withinItem(time);
  player_->setRate(0);
  beforeSeek_ = drawn();
  removedBeforeSeek_ = layer_->removedImages();
  player_->seekToTime(seekTarget_, kCMTimeZero, kCMTimeZero,
                      [weakSelf = weak_from_this(), number = ++seekNumber_](bool) {
                        dispatch_async(dispatch_get_main_queue(), [weakSelf, number] {
                          const auto self = weakSelf.lock();
                          if (self && number == self->seekNumber_) self->endSeek();
                        });
                      });
  if (doneBefore) doneBefore();
}

/// `time`, or that of the last frame if `time` is beyond it, where there would be nothing to show.
CMTime FastPlayback::withinItem(CMTime time) const {
  const auto item = player_->playerItem();
  const CMTime end = item ? endOf(*item) : kCMTimeInvalid;
  return CMTIME_IS_NUMERIC(end) ? CMTimeMinimum(time, end - kJustBefore) : time;
}

void FastPlayback::didPresent() {
  if (isSeeking_ && seekHasArrived()) endSeek();
}

/// The player is stopped until then, so its time and its picture are those of the seek; but for a
/// moment it shows, at the new time, what was read for the old one.
bool FastPlayback::seekHasArrived() const {
  if (layer_->removedImages() == removedBeforeSeek_) return false;
  const auto now = drawn();
  return now && now != beforeSeek_ && player_->currentTime() == seekTarget_;
}

/// Everything has been read: if the frame was not part of it, it will not come.
void FastPlayback::giveUpSeekLater() {
  if (!seekTimer_) seekTimer_ = after(kLastFramePatience, &FastPlayback::endSeek);
}

void FastPlayback::endSeek() {
  if (!std::exchange(isSeeking_, false)) return;
  if (const auto timer = std::exchange(seekTimer_, nullptr)) timer->cancel();
  beforeSeek_ = nullptr;
  renewals_ = kMostRenewals;
  applyRate();
  if (const auto done = std::exchange(seekDone_, nullptr)) done();
}

CVPixelBufferPtr FastPlayback::drawn() const {
  const auto picture = layer_->picture(TimeSource::now());
  return picture ? picture->buffer : nullptr;
}

}  // namespace zaffo::feed
