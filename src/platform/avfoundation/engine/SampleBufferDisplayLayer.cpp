// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/SampleBufferDisplayLayer.h"

#include <utility>

#include "platform/avfoundation/engine/PicturePlacement.h"
#include "platform/foundation/NSThread.h"
#include "platform/media/SampleBuffers.h"

namespace zaffo {

namespace {

AVQueuedSampleBufferRenderingStatus statusOf(const media::SampleRenderer& renderer) {
  switch (renderer.status()) {
    case media::SampleRenderer::Status::Unknown:
      break;
    case media::SampleRenderer::Status::Rendering:
      return AVQueuedSampleBufferRenderingStatus::Rendering;
    case media::SampleRenderer::Status::Failed:
      return AVQueuedSampleBufferRenderingStatus::Failed;
  }
  return AVQueuedSampleBufferRenderingStatus::Unknown;
}

}  // namespace

std::shared_ptr<AVSampleBufferDisplayLayer> AVSampleBufferDisplayLayer::create() {
  return SampleBufferDisplayLayer::create();
}

SampleBufferDisplayLayer::SampleBufferDisplayLayer() {
  setMasksToBounds(true);
}

std::shared_ptr<SampleBufferDisplayLayer> SampleBufferDisplayLayer::create() {
  const std::shared_ptr<SampleBufferDisplayLayer> layer(new SampleBufferDisplayLayer);
  media::SampleRenderer::Events events;
  events.pictureChanged = layer->displayRequest_.forLayer(layer->weak_from_this());
  events.statusChanged = [weakLayer = std::weak_ptr(layer)] {
    if (const auto changed = weakLayer.lock()) changed->status_->noteChange();
  };
  layer->renderer_ = media::SampleRenderer::create(std::move(events));
  layer->status_ =
      LayerStatus::create([renderer = layer->renderer_] { return statusOf(*renderer); });
  return layer;
}

SampleBufferDisplayLayer::~SampleBufferDisplayLayer() {
  renderer_->close();
}

std::shared_ptr<CMTimebase> SampleBufferDisplayLayer::controlTimebase() const {
  MutexLock lock(timebaseMutex_);
  return timebase_;
}

void SampleBufferDisplayLayer::setControlTimebase(std::shared_ptr<CMTimebase> timebase) {
  renderer_->setTimebase(timebase);
  MutexLock lock(timebaseMutex_);
  timebase_.swap(timebase);
}

AVLayerVideoGravity SampleBufferDisplayLayer::videoGravity() const {
  MutexLock lock(placementMutex_);
  return gravity_;
}

void SampleBufferDisplayLayer::setVideoGravity(AVLayerVideoGravity gravity) {
  {
    MutexLock lock(placementMutex_);
    if (std::exchange(gravity_, gravity) == gravity) return;
  }
  askForDraw();
}

void SampleBufferDisplayLayer::setPreferredTransform(CGAffineTransform transform) {
  {
    MutexLock lock(placementMutex_);
    if (std::exchange(transform_, transform) == transform) return;
  }
  askForDraw();
}

/// The tree is the main thread's.
void SampleBufferDisplayLayer::askForDraw() {
  if (NSThread::isMainThread()) return setNeedsDisplay();
  dispatch_async(dispatch_get_main_queue(), [weakLayer = weak_from_this()] {
    if (const auto layer = weakLayer.lock()) layer->setNeedsDisplay();
  });
}

void SampleBufferDisplayLayer::enqueueSampleBuffer(std::shared_ptr<CMSampleBuffer> sample) {
  if (!sample || !sample->formatDescription()) return;
  media::QueuedSample queued;
  if (!media::sampleFromBuffer(*sample, queued.sample)) return;
  queued.format = sample->formatDescription();
  queued.displayImmediately = sample->attachments().displayImmediately;
  {
    MutexLock lock(placementMutex_);
    format_ = queued.format;
  }
  status_->noteSample();
  renderer_->enqueue(std::move(queued));
}

/// All samples of a track are turned alike, so that those in flight do not matter.
SampleBufferDisplayLayer::Placement SampleBufferDisplayLayer::placement() const {
  MutexLock lock(placementMutex_);
  if (transform_) return {gravity_, *transform_};
  return {gravity_, format_ ? media::preferredTransformOf(*format_) : CGAffineTransformIdentity};
}

void SampleBufferDisplayLayer::flush() {
  renderer_->flush(media::SampleRenderer::Image::Keep);
}

void SampleBufferDisplayLayer::flushAndRemoveImage() {
  renderer_->flush(media::SampleRenderer::Image::Remove);
  ++removedImages_;
}

bool SampleBufferDisplayLayer::isReadyForMoreMediaData() const {
  return renderer_->isReadyForMore();
}

void SampleBufferDisplayLayer::requestMediaDataWhenReadyOnQueue(DispatchQueuePtr queue,
                                                                std::function<void()> block) {
  renderer_->requestWhenReady(std::move(queue), std::move(block));
}

void SampleBufferDisplayLayer::stopRequestingMediaData() {
  renderer_->stopRequesting();
}

void SampleBufferDisplayLayer::expectMediaData() {
  renderer_->expectSamples();
}

NSErrorPtr SampleBufferDisplayLayer::error() const {
  return status() == AVQueuedSampleBufferRenderingStatus::Failed ? renderer_->error() : nullptr;
}

KeyValueObservation SampleBufferDisplayLayer::observeStatus(std::function<void()> changed) {
  return status_->observe(std::move(changed));
}

bool SampleBufferDisplayLayer::isReadyForDisplay() const {
  return renderer_->frames()->hasFrame();
}

uint64_t SampleBufferDisplayLayer::droppedFrames() const {
  return renderer_->frames()->droppedFrames();
}

std::optional<LayerPicture> SampleBufferDisplayLayer::picture(int64_t hostNanoseconds) {
  displayRequest_.noteDraw();
  auto buffer = renderer_->frames()->bufferAtHostTime(hostNanoseconds);
  presentation_.noteGiven(buffer);
  if (!buffer) return std::nullopt;
  const auto [gravity, transform] = placement();
  return placePicture(std::move(buffer), transform, bounds(), gravity);
}

std::optional<int64_t> SampleBufferDisplayLayer::nextPictureTime() {
  return renderer_->frames()->planNextDraw();
}

void SampleBufferDisplayLayer::didPresent(const CVPixelBufferPtr& buffer, int64_t hostNanoseconds) {
  presentation_.notePresented(buffer, hostNanoseconds);
}

}  // namespace zaffo
