// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/Playback.h"

#include <utility>

#include "platform/FatalError.h"
#include "platform/TimeSource.h"
#include "platform/dispatch/Confinement.h"
#include "platform/foundation/AVError.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/playback/DecodeTurn.h"
#include "platform/media/playback/DueTime.h"

namespace zaffo::media {

namespace {

/// A pump that comes later than this finds the clock elsewhere: the process was stopped.
constexpr int64_t kLeap = 1'000'000'000;
/// A seek that takes longer shows a frame near by meanwhile: within twenty milliseconds, one step
/// of decoding included.
constexpr int64_t kUntilPreview = 15'000'000;

}  // namespace

std::shared_ptr<Playback> Playback::create(std::shared_ptr<SampleSource> source,
                                           AudioOutput& output, Events events,
                                           std::span<const TrackVolume> volumes) {
  const std::shared_ptr<Playback> playback(
      new Playback(source, output, std::move(events), volumes));
  playback->pictures_.setReadyHandler(playback->posting(&Playback::continueSeek));
  playback->sound_.setReadyHandler(playback->posting(&Playback::soundIsReady));
  playback->frames_->setDrawingHandler(playback->posting(&Playback::pump));
  playback->seek(kCMTimeZero, kCMTimeZero, kCMTimeZero, nullptr);
  return playback;
}

Playback::Playback(const std::shared_ptr<SampleSource>& source, AudioOutput& output, Events events,
                   std::span<const TrackVolume> volumes)
    : queue_(makePictureQueue("com.zaffo.playback")),
      clock_(source->duration()),
      frames_(std::make_shared<FrameStore>(clock_.timebase())),
      events_(std::move(events)),
      pictures_(source, frames_, source->duration()),
      sound_(source, volumes, output) {}

Playback::~Playback() = default;

/// What runs a step on the queue, from any thread, unless the playback is gone by then.
std::function<void()> Playback::posting(void (Playback::*step)()) {
  return [weakSelf = weak_from_this(), queue = queue_, step] {
    queue->async([weakSelf, step] {
      const auto self = weakSelf.lock();
      if (self && !self->commands_.isClosed()) ((*self).*step)();
    });
  };
}

// Commands: any thread.

void Playback::setRate(double rate) {
  queue_->async([self = shared_from_this(), rate, command = commands_.giveRate()] {
    self->commands_.begin(command);
    if (!self->commands_.isClosed()) self->applyRate(rate);
  });
}

void Playback::setVolume(float volume) {
  queue_->async([self = shared_from_this(), volume] { self->sound_.setVolume(volume); });
}

void Playback::seek(CMTime time, CMTime before, CMTime after, Completion completion) {
  const bool isTime = CMTIME_IS_VALID(time) && !CMTIME_IS_INDEFINITE(time);
  auto request = std::make_shared<SeekRequest>(isTime ? clock_.clamped(time) : kCMTimeInvalid,
                                               before, after, std::move(completion));
  if (!isTime || commands_.isClosed()) {
    queue_->async([request = std::move(request)] { request->end(false); });
    return;
  }
  queue_->async([self = shared_from_this(), command = commands_.giveSeek(),
                 request = std::move(request)]() mutable {
    self->commands_.begin(command);
    self->beginSeek(std::move(request));
  });
}

void Playback::preroll(Completion completion) {
  queue_->async([self = shared_from_this(), completion = std::move(completion)]() mutable {
    self->prerolls_.push_back(std::move(completion));
    if (self->commands_.isClosed() || self->error_) return self->completePrerolls(false);
    self->settle();
  });
}

void Playback::cancelPrerolls() {
  queue_->async([self = shared_from_this()] { self->completePrerolls(false); });
}

void Playback::close() {
  commands_.close();
  queue_->async([self = shared_from_this()] { self->letGo(); });
}

CMTime Playback::currentTime() const {
  return clock_.positionAt(TimeSource::now());
}

// The queue.

void Playback::enter(PlaybackState state) {
  assertCurrent(*queue_);
#ifndef NDEBUG
  if (!mayFollow(state_, state)) fatalError("A playback's state has no such way to go.");
#endif
  state_ = state;
}

// Seeks: first the picture, then the sound.

void Playback::beginSeek(Seek seek) {
  assertCurrent(*queue_);
  endSeek(false);
  seek_ = std::move(seek);
  if (commands_.isSuperseded()) return endSeek(false);
  if (state_ == PlaybackState::Running) pause();
  cancelTimer();
  enter(PlaybackState::Seeking);
  error_ = nullptr;
  previewDue_ = TimeSource::now() + kUntilPreview;
  pictures_.beginSearch(*seek_);
  continueSeek();
}

/// A step at a time, to give way as soon as something newer waits for the queue; but what is to be
/// seen of a search that is superseded is made first: who seeks on and on sees something.
void Playback::continueSeek() {
  assertCurrent(*queue_);
  if (state_ == PlaybackState::Running) return pump();
  if (state_ == PlaybackState::Waiting) return goOn();
  for (DecodeTurn turn; pictures_.isMakingPreview() || turn.goesOn();) {
    if (!seek_ || commands_.isClosed()) return endSeek(false);
    if (commands_.isSuperseded() && !pictures_.isMakingPreview()) {
      showPreview();
      return endSeek(false);
    }
    switch (pictures_.stepSearch()) {
      case Outcome::Working:
        if (TimeSource::now() >= previewDue_) showPreview();
        break;
      case Outcome::Again:
        return waitInSeek();
      case Outcome::Ready:
        return finishSeek();
      case Outcome::End:
      case Outcome::Error:
        endSeek(false);
        return fail(pictures_.error() ? pictures_.error()
                                      : makeError(AVErrorDecodeFailed,
                                                  "The video has no picture that can be decoded."));
    }
  }
  setPictureLoad(*queue_, pictures_.load());
  if (!std::exchange(isSeekTurnPosted_, true)) post(&Playback::nextSeekTurn);
}

void Playback::nextSeekTurn() {
  isSeekTurnPosted_ = false;
  continueSeek();
}

/// For the source.
void Playback::waitInSeek() {
  lack_ = Lack::Pressing;
  if (TimeSource::now() >= previewDue_) return showPreview();
  if (pictures_.hasPreview()) setTimer(previewDue_, &Playback::continueSeek);
}

void Playback::showPreview() {
  if (pictures_.showPreview() && events_.pictureChanged) events_.pictureChanged();
}

void Playback::finishSeek() {
  const CMTime position = seek_->positionWith(pictures_.foundTime());
  clock_.standAt(position, TimeSource::now());
  pictures_.showFound(position);
  if (events_.pictureChanged) events_.pictureChanged();
  enter(PlaybackState::Ready);
  endSeek(true);
  settle();
}

void Playback::endSeek(bool finished) {
  if (const Seek ended = std::exchange(seek_, nullptr)) ended->end(finished);
}

/// After the picture, the sound: then prerolls are done, and playing goes on or all is let go of
/// that can be had again quickly.
void Playback::settle() {
  assertCurrent(*queue_);
  const bool stands = state_ == PlaybackState::Ready || state_ == PlaybackState::Ended;
  if (!stands && state_ != PlaybackState::Running) return;
  if (stands && !sound_.prefill(clock_.timeAt(TimeSource::now()))) {
    lack_ = Lack::Pressing;
    return;
  }
  if (stands && sound_.failed() && !pictures_.exists()) {
    return fail(makeError(AVErrorDecodeFailed, "The sound cannot be decoded."));
  }
  lack_ = Lack::None;
  completePrerolls(true);
  if (state_ == PlaybackState::Running) return;
  if (rate_ > 0) return startRunning();
  pictures_.rest();
  sound_.rest();
  if (pictures_.holdsMore()) restLater();
}

void Playback::completePrerolls(bool finished) {
  for (const auto& completion : std::exchange(prerolls_, {})) completion(finished);
}

// Rate.

void Playback::applyRate(double rate) {
  assertCurrent(*queue_);
  if (std::exchange(rate_, rate) == rate) return;
  switch (state_) {
    case PlaybackState::Seeking:
    case PlaybackState::Closed:
      return;
    case PlaybackState::Ready:
      if (rate > 0) settle();
      return;
    case PlaybackState::Running:
    case PlaybackState::Waiting:
      if (rate > 0) return state_ == PlaybackState::Running ? changeRate() : void();
      pause();
      return restLater();
    case PlaybackState::Ended:
      return finish(clock_.timeAt(TimeSource::now()));
    case PlaybackState::Failed:
      return fail(error_);
  }
}

void Playback::startRunning() {
  cancelTimer();
  if (state_ == PlaybackState::Ready && pictures_.isDry(clock_.timeAt(TimeSource::now()))) {
    enter(PlaybackState::Waiting);
    return goOn();
  }
  enter(PlaybackState::Running);
  sound_.start(clock_, rate_, TimeSource::now());
  pump();
}

/// The picture changes pace at once; the sound joins it a little later, at its place.
void Playback::changeRate() {
  if (!clock_.changeRate(rate_, TimeSource::now())) return startRunning();
  sound_.joinAgain(clock_, rate_);
  pump();
}

void Playback::pause() {
  if (lack_ == Lack::Pressing) lack_ = Lack::Idle;
  enter(PlaybackState::Ready);
  clock_.stop(TimeSource::now());
  cancelTimer();
  sound_.stop();
}

/// Standing still, it lets go of what it holds beyond the frame on show, unless it goes on soon.
void Playback::restLater() {
  setTimer(TimeSource::now() + kUntilRestNanoseconds, &Playback::restMore);
}

void Playback::restMore() {
  const bool stands = state_ == PlaybackState::Ready || state_ == PlaybackState::Ended;
  if (!stands || rate_ > 0) return;
  if (frames_->advance(clock_.timeAt(TimeSource::now())) && events_.pictureChanged) {
    events_.pictureChanged();
  }
  pictures_.letGo();
  sound_.rest();
}

// Waiting for the source.

/// Nothing is left to be shown or heard: stands still until there is.
void Playback::wait() {
  enter(PlaybackState::Waiting);
  clock_.stop(TimeSource::now());
  cancelTimer();
  sound_.stop();
  goOn();
}

/// Decodes towards the next frame, then the sound, and runs on.
void Playback::goOn() {
  assertCurrent(*queue_);
  if (state_ != PlaybackState::Waiting) return;
  const CMTime now = clock_.timeAt(TimeSource::now());
  setPictureLoad(*queue_, pictures_.load());
  pictures_.decodeAhead(now, [this] { return commands_.isSuperseded(); });
  if (pictures_.error()) error_ = pictures_.error();
  if (commands_.isSuperseded()) return;
  if (pictures_.isDry(now)) {
    if (pictures_.isBusy()) return post(&Playback::goOn);
    lack_ = Lack::Pressing;
    return;
  }
  if (!sound_.prefill(now)) {
    lack_ = Lack::Pressing;
    return;
  }
  lack_ = Lack::None;
  completePrerolls(true);
  startRunning();
}

void Playback::soundIsReady() {
  if (state_ == PlaybackState::Waiting) return goOn();
  if (state_ != PlaybackState::Running) return settle();
  sound_.join();
  pump();
}

// Running.

/// Goes to the frame that is due, decodes a little ahead, and asks to be woken for the next thing
/// due.
void Playback::pump() {
  assertCurrent(*queue_);
  if (state_ != PlaybackState::Running) return;
  const int64_t host = TimeSource::now();
  if (catchUp(host)) return;
  const CMTime now = clock_.timeAt(host);
  if (frames_->advance(now) && events_.pictureChanged) events_.pictureChanged();
  setPictureLoad(*queue_, pictures_.load());
  pictures_.decodeAhead(now, [this] { return commands_.isSuperseded(); });
  if (pictures_.error()) error_ = pictures_.error();
  const auto end = endTime();
  if (runsDry(host)) return wait();
  if (end && now >= *end) return finish(*end);
  schedulePump();
}

/// After a leap of the clock it goes to where that is now, instead of decoding all that lies
/// between.
bool Playback::catchUp(int64_t host) {
  const bool isLate = std::exchange(pumpDue_, kNever) < host - kLeap;
  if (error_ || (!isLate && !sound_.isLeftBehind())) return false;
  beginSeek(
      std::make_shared<SeekRequest>(clock_.positionAt(host), kCMTimeZero, kCMTimeZero, nullptr));
  return true;
}

/// Whether nothing is left to be shown or heard, and only the source can change that.
bool Playback::runsDry(int64_t host) const {
  if (error_) return false;
  const auto silence = sound_.runsDryHostTime();
  const auto dry = pictures_.runsDryAt();
  return (silence && *silence <= host) || (dry && *dry <= clock_.timeAt(host));
}

void Playback::schedulePump() {
  cancelTimer();
  if (pictures_.isBusy()) {
    pumpDue_ = TimeSource::now();
    return post(&Playback::pump);
  }
  const auto due = nextPumpHostTime();
  if (!due) return;
  const int64_t wake = wakeHostTime(*due);
  setTimer(wake, &Playback::pump);
  pumpDue_ = wake;
}

/// Makes a step at a host time, and none that was to be made at another.
void Playback::setTimer(int64_t host, void (Playback::*step)()) {
  cancelTimer();
  timer_ = dispatch_timer_at(host, queue_, [weakSelf = weak_from_this(), step] {
    const auto self = weakSelf.lock();
    if (self && !self->commands_.isClosed()) ((*self).*step)();
  });
}

void Playback::cancelTimer() {
  if (timer_) timer_->cancel();
  timer_ = nullptr;
  pumpDue_ = kNever;
}

/// The host time of the next thing to do; none while only the source can bring it.
std::optional<int64_t> Playback::nextPumpHostTime() const {
  EarliestTime next;
  if (const auto wake = pictures_.nextWake()) next.add(dueHostTime(*clock_.timebase(), *wake));
  if (const auto end = endTime()) next.add(dueHostTime(*clock_.timebase(), *end));
  next.add(sound_.runsDryHostTime());
  if (const auto dry = pictures_.runsDryAt()) next.add(dueHostTime(*clock_.timebase(), *dry));
  return next.time();
}

/// Where the picture fails the item is over, too: the sound of a loop could go on for long.
std::optional<CMTime> Playback::endTime() const {
  if (error_) return pictures_.endOfLastFrame();
  return endOfItem(clock_.duration(), pictures_.end(), sound_.end());
}

// Coming to a stop.

void Playback::finish(CMTime end) {
  enter(PlaybackState::Ended);
  rate_ = 0;
  clock_.standAt(end, TimeSource::now());
  sound_.stop();
  restLater();
  if (error_) {
    if (events_.failed) events_.failed(commands_.begun(), error_);
  } else if (events_.ended) {
    events_.ended(commands_.begun());
  }
}

void Playback::fail(NSErrorPtr error) {
  enter(PlaybackState::Failed);
  error_ = error;
  rate_ = 0;
  if (events_.failed) events_.failed(commands_.begun(), std::move(error));
  completePrerolls(false);
}

void Playback::letGo() {
  enter(PlaybackState::Closed);
  cancelTimer();
  endSeek(false);
  completePrerolls(false);
  events_ = {};
  pictures_.close();
  sound_.close();
}

}  // namespace zaffo::media
