#include "cell/FastPlayback.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace zaffo::feed {

namespace {

/// What is left to play is nothing when it is less than this.
constexpr double kNothing = 1e-6;
/// The clock of the player may lag behind that of the timers: no use to look more often than this.
constexpr double kShortestWait = 1e-3;
/// An item that is said to have ended so close to where it was said before has been read.
constexpr double kSamePlaceSeconds = 0.05;
/// A file may hold less than it promises: for no longer than this is it waited for.
constexpr double kLongestWait = 5;
/// How long after the end a frame that was sought may still come, in nanoseconds.
constexpr int64_t kLastFramePatience = 500'000'000;
/// A seek stops the timebase twice, and there may be several on their way: more stops than these
/// come from a player that has nothing to play.
constexpr int kMostRenewals = 8;

/// Before the end of an item by so little that its last frame shows there.
constexpr CMTime kJustBefore = CMTimeMake(1, 90000);

/// Invalid when nobody knows.
CMTime endOf(const AVPlayerItem& item) {
  const auto tracks = item.asset()->tracksWithMediaType(AVMediaTypeVideo);
  const CMTime end = tracks.empty() ? kCMTimeInvalid : CMTimeRangeGetEnd(tracks[0]->timeRange);
  const auto isKnown = [](CMTime time) { return CMTIME_IS_NUMERIC(time) && time > kCMTimeZero; };
  if (isKnown(end)) return end;
  return isKnown(item.duration()) ? item.duration() : kCMTimeInvalid;
}

}  // namespace

std::shared_ptr<FastPlayback> FastPlayback::create(std::shared_ptr<Player> player, Events events) {
  const auto view = std::dynamic_pointer_cast<PlayerFastOutputView>(player->outputView());
  const auto layer = view ? view->sampleBufferDisplayerLayer() : nullptr;
  if (!layer) return nullptr;
  auto playback =
      std::make_shared<FastPlayback>(Private{}, std::move(player), layer, std::move(events));
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

// Failure

void FastPlayback::observeFailure() {
  const auto look = [weakSelf = weak_from_this()] {
    dispatch_async(dispatch_get_main_queue(), [weakSelf] {
      if (const auto self = weakSelf.lock()) self->reportFailure();
    });
  };
  statusObservation_ = layer_->observeStatus(look);
  look();  // a player that was loaded long ago may have failed before anyone looked
}

void FastPlayback::reportFailure() {
  if (layer_->status() != AVQueuedSampleBufferRenderingStatus::Failed) return;
  const auto error = layer_->error();
  const auto failed = std::exchange(events_.failed, nullptr);
  if (failed) failed(error ? error->localizedDescription() : std::string());
}

// The rate

void FastPlayback::setRate(float rate) {
  rate_ = rate;
  hasEnded_ = false;
  renewals_ = kMostRenewals;
  if (isSeeking_ && seekHasArrived()) return endSeek();
  if (!isSeeking_) applyRate();
}

/// Where everything has been read the session is left alone: it would stop at the last sample.
void FastPlayback::applyRate() {
  const auto timebase = isAllRead_ ? layer_->controlTimebase() : nullptr;
  if (timebase) {
    timebase->setRate(rate_);
  } else {
    player_->setRate(rate_);
  }
  awaitEnd();
}

/// A seek of somebody else's, of the pool's when it rewinds an idle player, may be on its way when
/// a player comes, and stops it later. What stops it at the end of the item says so first.
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

/// Seconds of the item from here to the end of its last picture; nothing when nobody knows.
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

/// The session counts the seconds to the last sample at rate 1. Told to play on, one that has read
/// everything says so at once, and whether that was the end or a failure; one that still reads
/// says so later.
void FastPlayback::endIsDue() {
  if (isAllRead_) return end();
  if (!(player_->rate() > 0)) return;
  if (secondsLeft().value_or(0) > kNothing) return awaitEnd();
  player_->setRate(rate_);
}

/// Before the end it is told to play on. One that says so once more, at the same place, has read
/// everything: then what is left, the pictures that are decoded before the last sample and shown
/// after it above all, needs nothing but the timebase.
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
  player_->seekToTime(seekTarget_, kCMTimeZero, kCMTimeZero,
                      [weakSelf = weak_from_this(), number = ++seekNumber_](bool) {
                        dispatch_async(dispatch_get_main_queue(), [weakSelf, number] {
                          const auto self = weakSelf.lock();
                          if (self && number == self->seekNumber_) self->endSeek();
                        });
                      });
  if (doneBefore) doneBefore();
}

/// `time`, or the last frame's when it is beyond that: from there on there would be nothing to
/// show.
CMTime FastPlayback::withinItem(CMTime time) const {
  const auto item = player_->playerItem();
  const CMTime end = item ? endOf(*item) : kCMTimeInvalid;
  return CMTIME_IS_NUMERIC(end) ? CMTimeMinimum(time, end - kJustBefore) : time;
}

void FastPlayback::didPresent() {
  if (isSeeking_ && seekHasArrived()) endSeek();
}

/// The player stands still until then, so that its time and its picture are those of the seek.
bool FastPlayback::seekHasArrived() const {
  const auto now = drawn();
  return now && now != beforeSeek_ && player_->currentTime() == seekTarget_;
}

/// Everything has been read: if the frame is not among it, it will not come.
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
