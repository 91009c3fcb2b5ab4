// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/SampleRenderer.h"

#include <utility>

#include "platform/TimeSource.h"
#include "platform/dispatch/Confinement.h"
#include "platform/media/playback/DecodeTurn.h"
#include "platform/media/playback/DueTime.h"

namespace zaffo::media {

namespace {

std::shared_ptr<CMTimebase> hostTimebase() {
  auto timebase = CMTimebase::create(CMClockGetHostTimeClock());
  const int64_t now = TimeSource::now();
  timebase->setRateAndAnchorTime(1, CMTimeMake(now, 1'000'000'000), now);
  return timebase;
}

}  // namespace

std::shared_ptr<SampleRenderer> SampleRenderer::create(Events events) {
  const std::shared_ptr<SampleRenderer> renderer(new SampleRenderer(std::move(events)));
  const auto wake = [weakRenderer = std::weak_ptr(renderer)] {
    if (const auto woken = weakRenderer.lock()) woken->wake();
  };
  renderer->frames()->setDrawingHandler(wake);
  renderer->dataRequest_->setAnsweredHandler(wake);
  return renderer;
}

SampleRenderer::SampleRenderer(Events events)
    : events_(std::move(events)),
      queue_(makePictureQueue("com.zaffo.samplerenderer")),
      samples_(hostTimebase()) {}

// Calls: any thread.

void SampleRenderer::setTimebase(std::shared_ptr<CMTimebase> timebase) {
  observe(timebase);
  frames()->setTimebase(timebase ? std::move(timebase) : hostTimebase());
  wake();
}

/// Is woken by changes of a timebase from now on, none with null.
void SampleRenderer::observe(const std::shared_ptr<CMTimebase>& timebase) {
  std::shared_ptr<void> observation;
  if (timebase) {
    observation = timebase->observeChanges([weakSelf = weak_from_this()] {
      if (const auto self = weakSelf.lock()) self->wake();
    });
  }
  // What was observed before is let go of with no lock held.
  MutexLock lock(observationMutex_);
  timebaseObservation_.swap(observation);
}

void SampleRenderer::enqueue(QueuedSample sample) {
  // First of all: to a pump that finds the sample it must not look like the last one of long ago.
  dataRequest_->noteSample(TimeSource::now());
  if (closed_) return;
  if (const auto& format = sample.format) {
    setPictureLoad(*queue_, pictureLoad(int64_t{format->width()} * format->height()));
  }
  const auto enqueued = samples_.enqueue(std::move(sample));
  if (!enqueued.isTaken) return;
  if (!samples_.queue().hasRoom(now())) dataRequest_->owe();
  if (enqueued.isAwaited) wake();
  if (enqueued.isFirst) events_.statusChanged();
}

void SampleRenderer::flush(Image image) {
  auto flushed = samples_.flush(image);
  dataRequest_->beginRun(samples_.queue().generation());
  queue_->async([held = std::move(flushed.held)] {});
  wake();
  if (image == Image::Remove) events_.pictureChanged();
  if (flushed.recovers) events_.statusChanged();
}

bool SampleRenderer::isReadyForMore() {
  if (status() == Status::Failed) return false;
  if (samples_.queue().hasRoom(now())) return true;
  dataRequest_->owe();
  return false;
}

void SampleRenderer::requestWhenReady(DispatchQueuePtr queue, std::function<void()> block) {
  dataRequest_->request(std::move(queue), std::move(block));
  // In a step of its own: what the client does right after asking comes before the first call.
  wake();
}

void SampleRenderer::stopRequesting() {
  static_cast<void>(dataRequest_->stop());
  wake();
}

CMTime SampleRenderer::now() const {
  return frames()->timebase()->time();
}

void SampleRenderer::close() {
  closed_ = true;
  queue_->async([self = shared_from_this(), request = dataRequest_->stop()] { self->letGo(); });
}

// The queue.

/// Asks for a pump, once until it begins.
void SampleRenderer::wake() {
  if (wakePosted_.exchange(true)) return;
  queue_->async([weakSelf = weak_from_this()] {
    const auto self = weakSelf.lock();
    if (self && !self->closed_) self->pump();
  });
}

void SampleRenderer::pump() {
  assertCurrent(*queue_);
  wakePosted_ = false;
  if (samples_.queue().generation() != decoder_.generation()) beginGeneration();
  if (failed_) return;
  const auto timebase = frames()->timebase();
  const int64_t hostNow = TimeSource::now();
  const CMTime now = timebase->timeAtHostTime(hostNow);
  if (frames()->advance(now)) events_.pictureChanged();
  const CMTime shown = frames()->shownTime();
  samples_.queue().trim(decoder_.generation(), shown);
  // Back before the frame on show: shows an earlier one if that is at hand.
  const bool wentBack = std::exchange(lastTime_, now) > now;
  if (wentBack && now < shown && decoder_.goBackTo(now)) dropQueued();
  if (timebase->rate() != 0) restAt_.reset();
  const bool isBusy = decode(*timebase, hostNow);
  const std::size_t late = decoder_.takeLate();
  if (timebase->rate() != 0 && CMTIME_IS_VALID(shown)) frames()->noteLate(late);
  if (failed_) return;
  if (dataRequest_->owesCall() && samples_.queue().hasAmpleRoom(now)) dataRequest_->call();
  schedule(*timebase, isBusy);
}

void SampleRenderer::beginGeneration() {
  decoder_.begin();
  burst_.stop();
  failed_ = false;
  lastTime_ = kCMTimeNegativeInfinity;
  lateness_.begin(TimeSource::now());
  restAt_.reset();
}

SampleQueueDecoder::Demand SampleRenderer::demandAt(const CMTimebase& timebase, int64_t hostNow) {
  const bool isPlaying = timebase.rate() > 0;
  burst_.update(frames()->queued(), samples_.queue().framesForDecodeOnlyRun(),
                decoder_.isInDecodeOnlyRun());
  SampleQueueDecoder::Demand demand;
  demand.now = timebase.timeAtHostTime(hostNow);
  demand.ahead = burst_.isOn() && isPlaying;
  demand.overdue = isPlaying && lateness_.isOverdue(hostNow);
  return demand;
}

/// Decodes one frame if it is time to. False when there is nothing to do until something happens.
bool SampleRenderer::decode(const CMTimebase& timebase, int64_t hostNow) {
  SampleQueueDecoder::Demand demand = demandAt(timebase, hostNow);
  awaitsQuiet_ = false;
  SampleQueueDecoder::Picture picture;
  for (DecodeTurn turn; turn.goesOn();) {
    // Anew for each step: samples may come between two of them.
    const auto prospect = dataRequest_->prospect(decoder_.generation(), hostNow);
    demand.noneComing = prospect != MediaDataRequest::Prospect::Coming;
    demand.haveAllCome = prospect == MediaDataRequest::Prospect::Ended;
    switch (decoder_.step(demand, picture)) {
      case Outcome::Working:
        if (!decoder_.takeRewind()) break;
        dropQueued();
        decoder_.goOnAfter(frames()->shownTime());
        break;
      case Outcome::Ready:
        give(std::move(picture), demand.now);
        return true;
      case Outcome::Error:
        failed_ = fail(decoder_.error());
        return false;
      case Outcome::Again:
        awaitsQuiet_ = !demand.noneComing;
        return false;
      case Outcome::End:
        awaitsQuiet_ = !demand.noneComing && !decoder_.isSettled();
        if (timebase.rate() == 0 && !awaitsQuiet_) rest(hostNow);
        return false;
    }
  }
  return true;
}

/// Puts a frame where whoever draws finds it, unless the samples were flushed meanwhile.
void SampleRenderer::give(SampleQueueDecoder::Picture picture, CMTime now) {
  lateness_.gave(picture.frame.presentation + picture.frame.duration, TimeSource::now());
  const bool changes = samples_.give(std::move(picture), decoder_.generation(), now);
  if (changes) events_.pictureChanged();
}

void SampleRenderer::dropQueued() {
  samples_.dropQueued(decoder_.generation());
}

/// Standing still: keeps the frame on show and the samples, and lets go of what can be had again,
/// if not quickly then after a while.
void SampleRenderer::rest(int64_t hostNow) {
  const CMTime shown = frames()->shownTime();
  const bool hasStoodForLong = restAt_ && *restAt_ <= hostNow;
  if (decoder_.letGoIfCheap(shown) || (hasStoodForLong && decoder_.letGo(shown))) dropQueued();
  if (hasStoodForLong && decoder_.keepsOtherThan(shown)) decoder_.forgetFirst();
  if (restAt_ || !(decoder_.hasDecoder() || decoder_.keepsOtherThan(shown))) return;
  restAt_ = hostNow + kUntilRestNanoseconds;
}

/// False when nobody is to hear of it: the samples were flushed, or are about to be.
bool SampleRenderer::fail(NSErrorPtr error) {
  const uint64_t generation = decoder_.generation();
  if (dataRequest_->isLeft(generation) || !samples_.fail(std::move(error), generation))
    return false;
  decoder_.close();
  events_.statusChanged();
  return true;
}

void SampleRenderer::schedule(const CMTimebase& timebase, bool isBusy) {
  if (timer_) timer_->cancel();
  timer_ = nullptr;
  if (isBusy) return wake();
  const auto next = nextPumpHostTime(timebase);
  if (!next) return;
  timer_ = dispatch_timer_at(wakeHostTime(*next), queue_, [weakSelf = weak_from_this()] {
    const auto self = weakSelf.lock();
    if (self && !self->closed_) self->pump();
  });
}

/// The host time of the next thing to do; none while only samples or a change can bring it.
std::optional<int64_t> SampleRenderer::nextPumpHostTime(const CMTimebase& timebase) const {
  EarliestTime next;
  const std::size_t few = DecodeBurst::kFewFrames + samples_.queue().framesForDecodeOnlyRun();
  if (const auto wake = frames()->nextWake(few)) next.add(dueHostTime(timebase, *wake));
  // Backwards, the frame on show is over when the time falls below its own.
  if (timebase.rate() < 0 && frames()->somebodyDraws()) {
    next.add(timebase.hostTimeAtTime(frames()->shownTime() - CMTimeMake(1, 1'000'000)));
  }
  if (awaitsQuiet_) next.add(dataRequest_->quietAt());
  if (restAt_ && *restAt_ > TimeSource::now()) next.add(*restAt_);
  if (decoder_.holdsLateFrame() && timebase.rate() > 0) next.add(lateness_.overdueAt());
  return next.time();
}

void SampleRenderer::letGo() {
  assertCurrent(*queue_);
  if (timer_) timer_->cancel();
  timer_ = nullptr;
  decoder_.close();
  static_cast<void>(samples_.flush(Image::Remove));
  observe(nullptr);
}

}  // namespace zaffo::media
