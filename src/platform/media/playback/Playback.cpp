#include "platform/media/playback/Playback.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/TimeSource.h"
#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/dispatch/Confinement.h"

namespace zaffo::media {

namespace {

/// Time given to decoding when sound is to start at a place while playing.
constexpr double kSoundStartSeconds = 0.02;

CMTime clamped(CMTime time, CMTime duration) {
  if (CMTIME_IS_NUMERIC(duration)) time = CMTimeMinimum(time, duration);
  return CMTimeMaximum(time, kCMTimeZero);
}

/// How far from its time a seek may end.
CMTime reachOf(CMTime tolerance) {
  if (CMTIME_IS_NUMERIC(tolerance)) return CMTimeAbsoluteValue(tolerance);
  return CMTIME_IS_POSITIVE_INFINITY(tolerance) ? tolerance : kCMTimeZero;
}

}  // namespace

std::shared_ptr<Playback> Playback::create(std::shared_ptr<SampleSource> source,
                                           AudioOutput& output, Events events,
                                           std::span<const TrackVolume> volumes) {
  const std::shared_ptr<Playback> playback(
      new Playback(std::move(source), output, std::move(events)));
  playback->openTracks(volumes);
  playback->frames_->setDrawingHandler([weakPlayback = std::weak_ptr(playback)] {
    if (const auto drawn = weakPlayback.lock()) drawn->post(&Playback::pump);
  });
  playback->seek(kCMTimeZero, kCMTimeZero, kCMTimeZero, nullptr);
  return playback;
}

Playback::Playback(std::shared_ptr<SampleSource> source, AudioOutput& output, Events events)
    : source_(std::move(source)),
      output_(output),
      duration_(source_->duration()),
      queue_(dispatch_queue_create("com.zaffo.playback")),
      timebase_(CMTimebase::create(CMClockGetHostTimeClock())),
      frames_(std::make_shared<FrameStore>(timebase_)),
      events_(std::move(events)) {}

Playback::~Playback() = default;

void Playback::openTracks(std::span<const TrackVolume> volumes) {
  for (const auto& track : source_->tracks()) {
    if (track->mediaType == AVMediaTypeVideo && !video_) {
      video_ = std::make_unique<VideoTrack>(source_, track->trackID);
    }
  }
  sound_ = Soundtrack::create(source_, volumes, output_);
  if (!sound_) return;
  sound_->setReadyHandler([weakSelf = weak_from_this()] {
    if (const auto self = weakSelf.lock()) self->post(&Playback::soundIsReady);
  });
}

/// Runs a step on the queue, unless the playback is gone by then.
void Playback::post(void (Playback::*step)()) {
  queue_->async([weakSelf = weak_from_this(), step] {
    const auto self = weakSelf.lock();
    if (self && !self->closed_) ((*self).*step)();
  });
}

// Commands: any thread.

void Playback::setRate(double rate) {
  queue_->async([self = shared_from_this(), rate, command = ++commands_] {
    self->handledCommand_ = command;
    if (!self->closed_) self->applyRate(rate);
  });
}

void Playback::setVolume(float volume) {
  queue_->async([self = shared_from_this(), volume] {
    if (!self->closed_ && self->sound_) self->sound_->setVolume(volume);
  });
}

void Playback::seek(CMTime time, CMTime before, CMTime after, Completion completion) {
  if (CMTIME_IS_INVALID(time) || CMTIME_IS_INDEFINITE(time) || closed_) {
    if (completion) queue_->async([completion = std::move(completion)] { completion(false); });
    return;
  }
  const CMTime target = clamped(time, duration_);
  const CMTime earliest = target - reachOf(before);
  const CMTime latest = target + reachOf(after);
  const uint64_t generation = ++newestSeek_;
  queue_->async(
      [self = shared_from_this(), command = ++commands_,
       seek = Seek{generation, target, earliest, latest, std::move(completion)}]() mutable {
        self->handledCommand_ = command;
        self->beginSeek(std::move(seek));
      });
}

void Playback::preroll(Completion completion) {
  queue_->async([self = shared_from_this(), completion = std::move(completion)]() mutable {
    self->prerolls_.push_back(std::move(completion));
    if (self->closed_ || self->error_) return self->completePrerolls(false);
    self->settle();
  });
}

void Playback::cancelPrerolls() {
  queue_->async([self = shared_from_this()] { self->completePrerolls(false); });
}

void Playback::close() {
  closed_ = true;
  queue_->async([self = shared_from_this()] {
    self->running_ = false;
    if (self->timer_) self->timer_->cancel();
    if (self->sound_) self->sound_->release();
    self->completeSeek(false);
    self->completePrerolls(false);
    self->events_ = {};
    self->video_.reset();
    self->sound_.reset();
    self->firstFrame_.reset();
    self->frames_->show({});
  });
}

CMTime Playback::currentTime() const {
  CMTime time = timebase_->time();
  {
    MutexLock lock(positionMutex_);
    time = CMTimeMaximum(time, position_);
  }
  return clamped(time, duration_);
}

// Rate.

void Playback::applyRate(double rate) {
  assertCurrent(*queue_);
  const double before = std::exchange(rate_, rate);
  if (rate == before) return;
  if (rate == 0) {
    if (running_) pause();
  } else if (atEnd_) {
    finish(timebase_->time());
  } else if (running_) {
    changeRate();
  } else {
    settle();
  }
}

void Playback::startRunning() {
  const CMTime position = currentTime();
  int64_t hostStart = TimeSource::now();
  if (sound_) {
    const int64_t firstFrame = output_.earliestStartFrame();
    const double seconds = static_cast<double>(firstFrame) / output_.sampleRate();
    hostStart = output_.clock()->hostTimeAtNanoseconds(std::llround(seconds * 1e9));
    sound_->start(firstFrame, rate_);
    timebase_->setMasterClock(output_.clock());
  }
  setPosition(position);
  timebase_->setRateAndAnchorTime(rate_, position, hostStart);
  running_ = true;
  pump();
}

/// The picture changes pace at once; the sound joins it a little later, at its place.
void Playback::changeRate() {
  const CMTime present = timebase_->time();
  if (present < currentTime()) return startRunning();  // the start is not heard yet
  setPosition(present);
  timebase_->setRate(rate_);
  if (sound_) {
    const int64_t firstFrame = output_.earliestStartFrame() +
                               static_cast<int64_t>(kSoundStartSeconds * output_.sampleRate());
    const double seconds = static_cast<double>(firstFrame) / output_.sampleRate();
    joint_ = {timebase_->timeAtHostTime(
                  output_.clock()->hostTimeAtNanoseconds(std::llround(seconds * 1e9))),
              firstFrame};
    sound_->stop();
    joinSound();
  }
  pump();
}

/// Starts the sound where it is to join in, once it can be had; what has gone by then is left out.
void Playback::joinSound() {
  if (!joint_ || !sound_->prefill(joint_->time)) return;
  sound_->start(joint_->outputFrame, rate_);
  joint_.reset();
}

void Playback::soundIsReady() {
  assertCurrent(*queue_);
  if (!running_) return settle();
  joinSound();
  pump();
}

void Playback::pause() {
  running_ = false;
  const CMTime position = currentTime();
  timebase_->setRate(0);
  timebase_->setTime(position);
  setPosition(position);
  if (timer_) timer_->cancel();
  joint_.reset();
  if (sound_) {
    sound_->stop();
    soundIsPrefilled_ = false;
  }
}

/// Keeps the frame on show and the first sound, and lets go of what can be had again quickly.
void Playback::collapse() {
  if (video_) video_->releaseDecoderIfRebuildable();
  if (sound_) sound_->release();
}

void Playback::setPosition(CMTime time) {
  MutexLock lock(positionMutex_);
  position_ = time;
}

void Playback::fail(NSErrorPtr error) {
  error_ = error;
  rate_ = 0;
  if (events_.failed) events_.failed(handledCommand_, std::move(error));
  completePrerolls(false);
}

void Playback::completePrerolls(bool finished) {
  for (const auto& completion : std::exchange(prerolls_, {})) completion(finished);
}

}  // namespace zaffo::media
