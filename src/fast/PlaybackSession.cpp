// SPDX-License-Identifier: Apache-2.0
#include "fast/PlaybackSession.h"

#include <string>
#include <utility>

#include "companion/Counter.h"
#include "fast/AVSampleBufferDisplayLayerStatusObserver.h"
#include "fast/DecimalText.h"
#include "fast/PlaybackSessionReader.h"
#include "platform/FatalError.h"
#include "platform/Trace.h"
#include "platform/foundation/NSNotificationCenter.h"

namespace zaffo {

using ReadError = AVAssetReaderExtension::ReadError;

namespace {

NSErrorPtr startError(int32_t status, const char* message) {
  return NSError::create(PlaybackSession::errorDomain, status,
                         {{NSLocalizedDescriptionKey, message}});
}

void postEnd(const std::shared_ptr<AVPlayerItem>& item, const ReadError& reason) {
  auto& center = NSNotificationCenter::defaultCenter();
  switch (reason.kind()) {
    case ReadError::Case::ReachedEnd:
      center.postNotification(AVPlayerItemDidPlayToEndTimeNotification, item);
      return;
    case ReadError::Case::Failed:
      center.postNotification(AVPlayerItemFailedToPlayToEndTimeNotification, item,
                              {{AVPlayerItemFailedToPlayToEndTimeErrorKey, reason.error()}});
      return;
    case ReadError::Case::Canceled:
      return;
  }
}

}  // namespace

std::int64_t PlaybackSession::nextIdentifier_ = 0;

std::shared_ptr<PlaybackSession> PlaybackSession::create(std::shared_ptr<AVPlayerItem> playerItem,
                                                         PlaybackSessionFactory factory) {
  const std::shared_ptr<PlaybackSession> session(
      new PlaybackSession(std::move(playerItem), std::move(factory)));
  session->observeDisplayLayerStatus();
  return session;
}

PlaybackSession::PlaybackSession(std::shared_ptr<AVPlayerItem> playerItem,
                                 PlaybackSessionFactory factory)
    : playerItem_(std::move(playerItem)),
      identifier_(std::exchange(nextIdentifier_, incremented(nextIdentifier_))),
      queue_(dispatch_queue_create("com.zaffo.PlayerFast.session")),
      displayLayerStatusObserver_(AVSampleBufferDisplayLayerStatusObserver::create()),
      factory_(std::move(factory)) {}

void PlaybackSession::observeDisplayLayerStatus() {
  displayLayerStatusObserver_->setStatusDidChange(
      [weakSelf = weak_from_this()](AVQueuedSampleBufferRenderingStatus status) {
        if (const auto self = weakSelf.lock()) self->displayLayerStatusDidChange(status);
      });
}

PlaybackSession::~PlaybackSession() {
  displayLayerStatusObserver_->setSampleBufferDisplayerLayer(nullptr);
  teardownReader();
}

std::shared_ptr<PlaybackSessionDelegate> PlaybackSession::delegate() const {
  return delegate_.get().lock();
}

void PlaybackSession::setDelegate(const std::shared_ptr<PlaybackSessionDelegate>& delegate) {
  delegate_.set(delegate);
}

const std::shared_ptr<AVAsset>& PlaybackSession::asset() {
  if (!asset_) asset_ = playerItem_->asset()->copy();
  return asset_;
}

// Starting, stopping, seeking, rate

void PlaybackSession::start(const Completion& completion) {
  if (auto error = makeTimebase()) {
    completion(std::move(error));
    return;
  }
  displayLayer_ = factory_.displayLayer();
  displayLayerStatusObserver_->setSampleBufferDisplayerLayer(displayLayer_);
  displayLayer_->setControlTimebase(timebase_);
  completion(setupReader(kCMTimeZero));
}

NSErrorPtr PlaybackSession::makeTimebase() {
  std::shared_ptr<CMClock> clock;
  const auto clockStatus = factory_.audioClockCreate(&clock);
  if (!clock) return startError(clockStatus, "Failed to create Audio Clock");
  std::shared_ptr<CMTimebase> timebase;
  const auto timebaseStatus = factory_.timebaseCreateWithMasterClock(clock, &timebase);
  if (!timebase) return startError(timebaseStatus, "Failed to create timebase");
  timebase_ = std::move(timebase);
  clock_ = std::move(clock);
  return nullptr;
}

void PlaybackSession::stop() {
  queue_->async([self = shared_from_this()] { self->teardownReader(); });
}

void PlaybackSession::seek(CMTime time, Completion completion) {
  const double previousRate = rate();
  stopReadingBuffers();
  queue_->async(
      [weakSelf = weak_from_this(), time, previousRate, completion = std::move(completion)] {
        const auto self = weakSelf.lock();
        if (!self) return;
        if (auto error = self->setupReader(time)) {
          if (completion) completion(std::move(error));
          return;
        }
        // Success is not reported: callers count on that.
        self->setRate(previousRate);
      });
}

double PlaybackSession::rate() const {
  return timebase_ ? timebase_->rate() : 0;
}

void PlaybackSession::setRate(double rate) {
  timebase().setRate(rate);
  if (!(rate > 0)) return;
  queue_->async([weakSelf = weak_from_this()] {
    if (const auto self = weakSelf.lock()) self->startReadingBuffers();
  });
}

CMTime PlaybackSession::currentTime() const {
  return timebase_ ? timebase_->time() : kCMTimeZero;
}

CMTimebase& PlaybackSession::timebase() const {
  if (!timebase_) fatalError("A playback session was used before it was started");
  return *timebase_;
}

// The reader

NSErrorPtr PlaybackSession::setupReader(CMTime time) {
  teardownReader();
  trace(" - Setup reader at time " + decimalText(CMTimeGetSeconds(time)));
  if (auto error = makeReader(time)) {
    teardownReader();
    return error;
  }
  setRate(0);
  timebase().setTime(time);
  if (displayLayer_) displayLayer_->flushAndRemoveImage();
  lastBufferTime_ = time;
  try {
    // The frame to show, at once; if it has not come yet, it is the first one that is read below.
    static_cast<void>(enqueueNextVideoBuffer());
  } catch (const std::exception&) {
    // The next read meets it again and acts on it.
  }
  startReadingBuffers();
  return nullptr;
}

NSErrorPtr PlaybackSession::makeReader(CMTime time) {
  try {
    reader_ = std::make_shared<PlaybackSessionReader>(asset(), time, factory_);
    reader_->setReadyHandler([weakSelf = weak_from_this(), queue = queue_, reader = reader_.get()] {
      queue->async([weakSelf, reader] {
        if (const auto self = weakSelf.lock()) self->videoBuffersHaveCome(reader);
      });
    });
    return nullptr;
  } catch (const ReadError& error) {
    return error.asNSError();
  } catch (const NSErrorException& exception) {
    return exception.error();
  }
}

void PlaybackSession::teardownReader() {
  if (reader_) {
    trace(" - Cancel reading");
    reader_->teardown();
    reader_ = nullptr;
  }
  stopReadingBuffers();
  if (const auto command = std::exchange(notifyCompletionCommand_, nullptr)) command->cancel();
}

// Reading

void PlaybackSession::startReadingBuffers() {
  if (readingBuffers_) return;
  trace(" - Start reading buffers (rate: " + decimalText(rate()) + ")");
  readingBuffers_ = true;
  requestBuffers();
}

void PlaybackSession::requestBuffers() {
  if (!displayLayer_) return;
  displayLayer_->requestMediaDataWhenReadyOnQueue(queue_, [weakSelf = weak_from_this()] {
    if (const auto self = weakSelf.lock()) self->readAndEnqueueVideoBuffers();
  });
}

void PlaybackSession::stopReadingBuffers() {
  if (!readingBuffers_) return;
  trace(" - Stop reading buffers (rate: " + decimalText(rate()) + ")");
  readingBuffers_ = false;
  if (displayLayer_) displayLayer_->stopRequestingMediaData();
}

void PlaybackSession::readAndEnqueueVideoBuffers() {
  if (!displayLayer_) return;
  trace(" - Reading buffers");
  const bool isPaused = rate() == 0;
  const auto position = currentTime();
  if (!readingBuffers_) return;
  try {
    enqueueWhileReady(isPaused, position);
  } catch (const ReadError& error) {
    stopReadingBuffers();
    notifyWhenLastBufferIsDue(position, [item = playerItem_, error] { postEnd(item, error); });
  } catch (const std::exception&) {
    // Not the reader's end: only this turn of reading is over.
  }
}

void PlaybackSession::enqueueWhileReady(bool isPaused, CMTime position) {
  while (displayLayer_->isReadyForMoreMediaData()) {
    if (!enqueueNextVideoBuffer()) return displayLayer_->expectMediaData();
    if (isPaused) {
      const double lead = CMTimeGetSeconds(lastBufferTime_) - CMTimeGetSeconds(position);
      if (lead >= readAhead) stopReadingBuffers();
    }
    if (!readingBuffers_) return;
  }
}

/// False when its bytes have not come yet.
bool PlaybackSession::enqueueNextVideoBuffer() {
  if (!reader_) throw ReadError::canceled();
  auto sample = reader_->nextVideoBufferIfReady();
  if (!sample) return false;
  const auto time = sample->outputPresentationTimeStamp();
  trace(" - Enqueing buffer at " + decimalText(CMTimeGetSeconds(time)) + "s");
  if (displayLayer_) displayLayer_->enqueueSampleBuffer(std::move(sample));
  if (CMTIME_IS_NUMERIC(time)) lastBufferTime_ = time;
  return true;
}

/// What `reader` had not, when it was asked last, is here: the layer asks for it anew.
void PlaybackSession::videoBuffersHaveCome(const PlaybackSessionReader* reader) {
  if (reader_.get() == reader && readingBuffers_) requestBuffers();
}

void PlaybackSession::notifyWhenLastBufferIsDue(CMTime position, DispatchBlock notify) {
  const double lead = CMTimeGetSeconds(lastBufferTime_) - CMTimeGetSeconds(position);
  // An earlier command is dropped, not cancelled: its notification comes too.
  notifyCompletionCommand_ = dispatch_after_cancellable(
      lead > 0 ? lead : 0, queue_, [weakSelf = weak_from_this(), notify = std::move(notify)] {
        const auto self = weakSelf.lock();
        if (!self) return;
        self->notifyCompletionCommand_ = nullptr;
        self->setRate(0);
        dispatch_get_main_queue()->async(notify);
      });
}

// Failure of the layer

void PlaybackSession::displayLayerStatusDidChange(AVQueuedSampleBufferRenderingStatus status) {
  if (status != AVQueuedSampleBufferRenderingStatus::Failed || !displayLayer_) return;
  const auto error = displayLayer_->error();
  if (!error) return;
  stopReadingBuffers();
  queue_->async([weakSelf = weak_from_this(), error] {
    const auto self = weakSelf.lock();
    if (!self) return;
    self->teardownReader();
    self->setRate(0);
    if (const auto delegate = self->delegate()) delegate->playbackSession(self, error);
  });
}

void PlaybackSession::trace(std::string_view text) const {
  zaffo::trace(std::to_string(identifier_).append(text));
}

}  // namespace zaffo
