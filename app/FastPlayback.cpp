#include "FastPlayback.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace zaffo::feed {

namespace {

/// An end is early when it comes with more than this left to play, and is not at the place of the
/// last one: a file may hold less than it promises.
constexpr double kEarlySeconds = 0.25;
constexpr double kSamePlaceSeconds = 0.05;
/// A seek has arrived when the time is so close to where it went.
constexpr double kArrivedSeconds = 0.5;
/// How long after the end a frame that was sought may still come, in nanoseconds.
constexpr int64_t kLastFramePatience = 500'000'000;

/// Before the end of an item by so little that its last frame shows there.
constexpr CMTime kJustBefore = CMTimeMake(1, 90000);

CMTime endOf(const AVPlayerItem& item) {
  const auto tracks = item.asset()->tracksWithMediaType(AVMediaTypeVideo);
  const CMTime end = tracks.empty() ? kCMTimeInvalid : CMTimeRangeGetEnd(tracks[0]->timeRange);
  return CMTIME_IS_NUMERIC(end) && end > kCMTimeZero ? end : item.duration();
}

}  // namespace

std::shared_ptr<FastPlayback> FastPlayback::create(std::shared_ptr<Player> player,
                                                   std::function<void(std::string reason)> failed) {
  const auto view = std::dynamic_pointer_cast<PlayerFastOutputView>(player->outputView());
  const auto layer = view ? view->sampleBufferDisplayerLayer() : nullptr;
  if (!layer) return nullptr;
  auto playback =
      std::make_shared<FastPlayback>(Private{}, std::move(player), layer, std::move(failed));
  playback->observeFailure();
  return playback;
}

FastPlayback::FastPlayback(Private, std::shared_ptr<Player> player,
                           std::shared_ptr<AVSampleBufferDisplayLayer> layer,
                           std::function<void(std::string reason)> failed)
    : player_(std::move(player)), layer_(std::move(layer)), failed_(std::move(failed)) {}

FastPlayback::~FastPlayback() {
  endSeek();
}

void FastPlayback::observeFailure() {
  const auto look = [weakSelf = weak_from_this()] {
    dispatch_async(dispatch_get_main_queue(), [weakSelf] {
      if (const auto self = weakSelf.lock()) self->reportFailure();
    });
  };
  statusObservation_ = layer_->observeStatus(look);
  look();  // it may have failed before anyone could hear of it
}

void FastPlayback::reportFailure() {
  if (layer_->status() != AVQueuedSampleBufferRenderingStatus::Failed) return;
  const auto error = layer_->error();
  const auto failed = std::exchange(failed_, nullptr);
  if (failed) failed(error ? error->localizedDescription() : std::string());
}

// Going about

void FastPlayback::restart(float rate) {
  lastEnd_ = -1;
  // A seek goes on at the rate from before it, and does not say when it has been done.
  player_->setRate(rate);
  player_->seekToTime(kCMTimeZero, kCMTimeZero, kCMTimeZero, {});
}

void FastPlayback::seek(CMTime time, std::function<void()> done) {
  endSeek();
  lastEnd_ = -1;
  seekDone_ = std::move(done);
  seekTarget_ = withinItem(time);
  beforeSeek_ = drawn();
  player_->seekToTime(seekTarget_, kCMTimeZero, kCMTimeZero, [weakSelf = weak_from_this()](bool) {
    dispatch_async(dispatch_get_main_queue(), [weakSelf] {
      if (const auto self = weakSelf.lock()) self->endSeek();
    });
  });
}

/// `time`, or the last frame's when it is beyond that: from there on there would be nothing to
/// show.
CMTime FastPlayback::withinItem(CMTime time) const {
  const auto item = player_->playerItem();
  const CMTime end = item ? endOf(*item) : kCMTimeInvalid;
  return CMTIME_IS_NUMERIC(end) ? CMTimeMinimum(time, end - kJustBefore) : time;
}

void FastPlayback::didPresent() {
  if (!seekDone_) return;
  const double distance = CMTimeGetSeconds(player_->currentTime()) - CMTimeGetSeconds(seekTarget_);
  const auto now = drawn();
  if (now && now != beforeSeek_ && std::abs(distance) < kArrivedSeconds) endSeek();
}

/// Everything has been read: if the frame is not among it, it will not come.
void FastPlayback::giveUpSeekLater() {
  if (!seekDone_ || seekTimer_) return;
  seekTimer_ = dispatch_timer_after(kLastFramePatience, dispatch_get_main_queue(),
                                    [weakSelf = weak_from_this()] {
                                      if (const auto self = weakSelf.lock()) self->endSeek();
                                    });
}

void FastPlayback::endSeek() {
  if (const auto timer = std::exchange(seekTimer_, nullptr)) timer->cancel();
  beforeSeek_ = nullptr;
  if (const auto done = std::exchange(seekDone_, nullptr)) done();
}

CVPixelBufferPtr FastPlayback::drawn() const {
  const auto picture = layer_->picture(TimeSource::now());
  return picture ? picture->buffer : nullptr;
}

// The end

double FastPlayback::secondsLeft() const {
  const auto item = player_->playerItem();
  if (!item) return 0;
  const double left = CMTimeGetSeconds(endOf(*item)) - CMTimeGetSeconds(player_->currentTime());
  return std::isfinite(left) ? std::max(left, 0.0) : 0;
}

bool FastPlayback::hasEnded(float rate) {
  giveUpSeekLater();
  if (!(rate > 0)) return false;
  const double position = CMTimeGetSeconds(player_->currentTime());
  const bool isEarly =
      secondsLeft() > kEarlySeconds && std::abs(position - lastEnd_) > kSamePlaceSeconds;
  lastEnd_ = position;
  if (isEarly) player_->setRate(rate);
  return !isEarly;
}

int64_t FastPlayback::leftOfLastFrame(float rate) const {
  if (!(rate > 0)) return 0;
  return static_cast<int64_t>(1e9 * std::min(secondsLeft(), kEarlySeconds) / rate);
}

}  // namespace zaffo::feed
