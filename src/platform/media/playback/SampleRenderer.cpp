#include "platform/media/playback/SampleRenderer.h"

#include <utility>

#include "platform/TimeSource.h"
#include "platform/media/playback/DueTime.h"

namespace zaffo::media {

namespace {

/// Steps of decoding between two looks at what else is to be done.
constexpr int kStepsPerPump = 16;
/// A picture that stands for so long while others are due is replaced by one that is late too.
constexpr int64_t kOverdueNanoseconds = 100'000'000;

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
  renderer->frames_->setDrawingHandler(wake);
  renderer->dataRequest_->setAnsweredHandler(wake);
  return renderer;
}

SampleRenderer::SampleRenderer(Events events)
    : events_(std::move(events)),
      queue_(dispatch_queue_create("com.zaffo.samplerenderer")),
      frames_(std::make_shared<FrameStore>(hostTimebase())) {}

// Calls: any thread.

void SampleRenderer::setTimebase(std::shared_ptr<CMTimebase> timebase) {
  std::shared_ptr<void> observation;
  if (timebase) {
    observation = timebase->observeChanges([weakSelf = weak_from_this()] {
      if (const auto self = weakSelf.lock()) self->wake();
    });
  }
  frames_->setTimebase(timebase ? std::move(timebase) : hostTimebase());
  {
    MutexLock lock(statusMutex_);
    timebaseObservation_.swap(observation);
  }
  wake();
}

void SampleRenderer::enqueue(QueuedSample sample) {
  // First of all: to a pump that finds the sample it must not look like the last one of long ago.
  dataRequest_->noteSample(TimeSource::now());
  bool begins = false;
  bool isAwaited = false;
  {
    MutexLock lock(statusMutex_);
    if (closed_ || status_ == Status::Failed) return;
    begins = std::exchange(status_, Status::Rendering) == Status::Unknown;
    isAwaited = sampleQueue_.push(std::move(sample));
  }
  if (!sampleQueue_.hasRoom(now())) dataRequest_->owe();
  if (isAwaited) wake();
  if (begins) events_.statusChanged();
}

void SampleRenderer::flush(Image image) {
  SampleQueue::Held held;
  bool recovers = false;
  {
    MutexLock lock(statusMutex_);
    held = sampleQueue_.flush();
    dataRequest_->beginRun(sampleQueue_.generation());
    if (image == Image::Keep) {
      frames_->keepPicture();
    } else {
      frames_->show({});
      recovers = status_ == Status::Failed;
      if (recovers) status_ = Status::Unknown;
      error_ = nullptr;
    }
  }
  queue_->async([held = std::move(held)] {});
  wake();
  if (image == Image::Remove) events_.pictureChanged();
  if (recovers) events_.statusChanged();
}

bool SampleRenderer::isReadyForMore() {
  if (status() == Status::Failed) return false;
  if (sampleQueue_.hasRoom(now())) return true;
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

SampleRenderer::Status SampleRenderer::status() const {
  MutexLock lock(statusMutex_);
  return status_;
}

NSErrorPtr SampleRenderer::error() const {
  MutexLock lock(statusMutex_);
  return error_;
}

CMTime SampleRenderer::now() const {
  return frames_->timebase()->time();
}

void SampleRenderer::close() {
  closed_ = true;
  queue_->async([self = shared_from_this(), request = dataRequest_->stop()] {
    if (self->timer_) self->timer_->cancel();
    self->timer_ = nullptr;
    self->decoder_.close();
    static_cast<void>(self->sampleQueue_.flush());
    self->frames_->show({});
    std::shared_ptr<void> observation;
    MutexLock lock(self->statusMutex_);
    observation.swap(self->timebaseObservation_);
  });
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
  wakePosted_ = false;
  if (sampleQueue_.generation() != decoder_.generation()) beginGeneration();
  if (failed_) return;
  const auto timebase = frames_->timebase();
  const int64_t hostNow = TimeSource::now();
  const CMTime now = timebase->timeAtHostTime(hostNow);
  if (frames_->advance(now)) events_.pictureChanged();
  const CMTime shown = frames_->shownTime();
  sampleQueue_.trim(decoder_.generation(), shown);
  if (std::exchange(lastTime_, now) > now && now < shown) goBackTo(now);
  const bool isBusy = decode(*timebase, hostNow);
  const std::size_t late = decoder_.takeLate();
  if (timebase->rate() != 0 && CMTIME_IS_VALID(shown)) frames_->noteLate(late);
  if (failed_) return;
  askForMore(now);
  schedule(*timebase, isBusy);
}

void SampleRenderer::beginGeneration() {
  decoder_.begin();
  burst_.stop();
  failed_ = false;
  lastGiven_ = TimeSource::now();
  lastTime_ = kCMTimeNegativeInfinity;
}

/// Time went back, before the frame on show: shows an earlier one if that is at hand.
void SampleRenderer::goBackTo(CMTime time) {
  if (decoder_.goBackTo(time)) dropQueued();
}

void SampleRenderer::dropQueued() {
  MutexLock lock(statusMutex_);
  if (sampleQueue_.generation() == decoder_.generation()) frames_->dropQueued();
}

/// Decodes one frame if it is time to. False when there is nothing to do until something happens.
bool SampleRenderer::decode(const CMTimebase& timebase, int64_t hostNow) {
  const bool isPlaying = timebase.rate() > 0;
  SampleQueueDecoder::Demand demand;
  demand.now = timebase.timeAtHostTime(hostNow);
  // A decode-only run that has begun is seen through.
  const bool isInDecodeOnlyRun = burst_.isOn() && decoder_.isInDecodeOnlyRun();
  if (!isInDecodeOnlyRun) burst_.update(frames_->queued(), sampleQueue_.framesForDecodeOnlyRun());
  demand.ahead = burst_.isOn() && isPlaying;
  demand.overdue = isPlaying && hostNow - lastGiven_ >= kOverdueNanoseconds;
  awaitsQuiet_ = false;
  SampleQueueDecoder::Picture picture;
  for (int step = 0; step < kStepsPerPump; ++step) {
    // Anew for each step: samples may come between two of them.
    const auto prospect = dataRequest_->prospect(decoder_.generation(), hostNow);
    demand.noneComing = prospect != MediaDataRequest::Prospect::Coming;
    demand.haveAllCome = prospect == MediaDataRequest::Prospect::Ended;
    switch (decoder_.step(demand, picture)) {
      case Outcome::Working:
        if (!decoder_.takeRewind()) break;
        dropQueued();
        decoder_.goOnAfter(frames_->shownTime());
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
        if (timebase.rate() == 0 && !awaitsQuiet_) rest();
        return false;
    }
  }
  return true;
}

/// Puts a frame where whoever draws finds it, unless the samples were flushed meanwhile.
void SampleRenderer::give(SampleQueueDecoder::Picture picture, CMTime now) {
  bool changes = picture.atOnce;
  {
    MutexLock lock(statusMutex_);
    if (sampleQueue_.generation() != decoder_.generation()) return;
    if (picture.atOnce) {
      frames_->show(std::move(picture.frame));
      if (picture.isStandIn) frames_->keepPicture();
    } else {
      frames_->push(std::move(picture.frame));
      changes = frames_->advance(now);
    }
  }
  lastGiven_ = TimeSource::now();
  if (changes) events_.pictureChanged();
}

/// Standing still: keeps the frame on show and the samples, and lets go of what can be had again
/// quickly.
void SampleRenderer::rest() {
  if (decoder_.letGoIfCheap(frames_->shownTime())) dropQueued();
}

void SampleRenderer::askForMore(CMTime now) {
  if (dataRequest_->owesCall() && sampleQueue_.hasAmpleRoom(now)) dataRequest_->call();
}

/// False when nobody is to hear of it: the samples were flushed, or are about to be.
bool SampleRenderer::fail(NSErrorPtr error) {
  {
    MutexLock lock(statusMutex_);
    const uint64_t run = decoder_.generation();
    if (sampleQueue_.generation() != run || dataRequest_->isLeft(run)) return false;
    status_ = Status::Failed;
    error_ = std::move(error);
  }
  decoder_.close();
  events_.statusChanged();
  return true;
}

void SampleRenderer::schedule(const CMTimebase& timebase, bool isBusy) {
  if (timer_) timer_->cancel();
  timer_ = nullptr;
  if (isBusy) return wake();
  std::optional<int64_t> next;
  const auto consider = [&next](std::optional<int64_t> time) {
    if (time && (!next || *time < *next)) next = time;
  };
  const std::size_t few = DecodeBurst::kFewFrames + sampleQueue_.framesForDecodeOnlyRun();
  if (const auto presentation = frames_->nextWake(few)) {
    consider(dueHostTime(timebase, *presentation));
  }
  // Backwards, the frame on show is over when the time falls below its own.
  if (timebase.rate() < 0 && frames_->somebodyDraws()) {
    consider(timebase.hostTimeAtTime(frames_->shownTime() - CMTimeMake(1, 1'000'000)));
  }
  if (awaitsQuiet_) consider(dataRequest_->quietAt());
  if (decoder_.holdsLateFrame() && timebase.rate() > 0) consider(lastGiven_ + kOverdueNanoseconds);
  if (!next) return;
  timer_ = dispatch_timer_at(wakeHostTime(*next), queue_, [weakSelf = weak_from_this()] {
    const auto self = weakSelf.lock();
    if (self && !self->closed_) self->pump();
  });
}

}  // namespace zaffo::media
