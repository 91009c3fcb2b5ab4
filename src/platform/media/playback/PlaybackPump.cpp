// What a running playback does each time it wakes: goes to the frame that is due, decodes a little
// ahead, tops up the sound, and asks to be woken for the next thing due.

#include <utility>

#include "platform/TimeSource.h"
#include "platform/dispatch/Confinement.h"
#include "platform/media/playback/DueTime.h"
#include "platform/media/playback/Playback.h"

namespace zaffo::media {

namespace {

/// Steps of decoding between two looks at what else is to be done.
constexpr int kStepsPerPump = 16;
/// A decoder this far behind leaves out frames that no other refers to.
constexpr CMTime kLateness = CMTimeMake(1, 10);

}  // namespace

void Playback::pump() {
  assertCurrent(*queue_);
  if (!running_) return;
  const CMTime now = timebase_->timeAtHostTime(TimeSource::now());
  if (frames_->advance(now) && events_.pictureChanged) events_.pictureChanged();
  if (sound_) sound_->fill();
  decodeAhead(now);
  const auto end = endTime();
  if (end && now >= *end) return finish(*end);
  schedulePump();
}

/// Decodes one frame if it is time to: between two frames the queue looks at what else is due.
void Playback::decodeAhead(CMTime now) {
  // A decode-only run that has begun is seen through.
  const bool isInDecodeOnlyRun = burst_.isOn() && video_ && video_->decodeOnlyRun().isUnderWay();
  if (!isInDecodeOnlyRun) burst_.update(frames_->queued(), framesForDecodeOnlyRun());
  if (!video_ || videoEnded_) burst_.stop();
  waitsForSource_ = false;
  VideoFrame frame;
  for (int step = 0; burst_.isOn() && step < kStepsPerPump; ++step) {
    if (superseded()) return;
    switch (video_->stepNext(frame)) {
      case Outcome::Working:
        break;
      case Outcome::Again:
        waitsForSource_ = true;
        return;
      case Outcome::Ready:
        videoEnd_ = endOf(frame);
        video_->hurryTo(videoEnd_ + kLateness < now ? now : kCMTimeInvalid);
        frames_->push(std::move(frame));
        return;
      case Outcome::Error:
        error_ = video_->error();
        [[fallthrough]];
      case Outcome::End:
        videoEnded_ = true;
        burst_.stop();
        return;
    }
  }
}

std::size_t Playback::framesForDecodeOnlyRun() const {
  return video_ ? video_->decodeOnlyRun().framesAhead() : 0;
}

/// Until when a frame is shown if none follows.
CMTime Playback::endOf(const VideoFrame& frame) const {
  const bool known = CMTIME_IS_NUMERIC(frame.duration) && frame.duration > kCMTimeZero;
  if (known) return frame.presentation + frame.duration;
  return CMTIME_IS_NUMERIC(duration_) ? CMTimeMaximum(frame.presentation, duration_)
                                      : frame.presentation;
}

/// When the item is over: at its duration, or where its data ends if that is earlier or if the
/// container does not tell. Where the picture fails it is over, too: the sound of a loop could go
/// on for long.
std::optional<CMTime> Playback::endTime() const {
  if (error_) return videoEnd_;
  const bool told = CMTIME_IS_NUMERIC(duration_) && duration_ > kCMTimeZero;
  const bool pictureIsOver = !video_ || videoEnded_;
  const bool soundIsOver = !sound_ || sound_->finished();
  if (!pictureIsOver || !soundIsOver) return told ? std::optional(duration_) : std::nullopt;
  const auto soundEnd = sound_ ? sound_->endTime() : kCMTimeZero;
  if (!soundEnd && (told || !video_)) return told ? std::optional(duration_) : std::nullopt;
  const CMTime end =
      CMTimeMaximum(video_ ? videoEnd_ : kCMTimeZero, soundEnd.value_or(kCMTimeZero));
  return told ? CMTimeMinimum(end, duration_) : end;
}

void Playback::schedulePump() {
  if (timer_) timer_->cancel();
  timer_ = nullptr;
  if (burst_.isOn() && !waitsForSource_) return post(&Playback::pump);
  const auto due = nextPumpHostTime();
  if (!due) return;
  timer_ = dispatch_timer_at(wakeHostTime(*due), queue_, [weakSelf = weak_from_this()] {
    const auto self = weakSelf.lock();
    if (self && !self->closed_) self->pump();
  });
}

/// The host time of the next thing to do; none while only the source can bring it.
std::optional<int64_t> Playback::nextPumpHostTime() const {
  std::optional<int64_t> next;
  const auto consider = [&next](std::optional<int64_t> time) {
    if (time && (!next || *time < *next)) next = time;
  };
  const std::size_t few = DecodeBurst::kFewFrames + framesForDecodeOnlyRun();
  if (const auto presentation = frames_->nextWake(few)) {
    consider(dueHostTime(*timebase_, *presentation));
  }
  if (sound_) consider(sound_->nextFillHostTime());
  if (const auto end = endTime()) consider(dueHostTime(*timebase_, *end));
  return next;
}

void Playback::finish(CMTime end) {
  running_ = false;
  joint_.reset();
  atEnd_ = true;
  soundIsPrefilled_ = false;
  rate_ = 0;
  timebase_->setRate(0);
  timebase_->setTime(end);
  setPosition(end);
  if (sound_) sound_->stop();
  if (error_) {
    if (events_.failed) events_.failed(handledCommand_, error_);
  } else if (events_.ended) {
    events_.ended(handledCommand_);
  }
}

}  // namespace zaffo::media
