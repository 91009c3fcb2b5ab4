// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/RenderedSamples.h"

#include <utility>

namespace zaffo::media {

RenderedSamples::Enqueued RenderedSamples::enqueue(QueuedSample sample) {
  MutexLock lock(changeMutex_);
  if (status_ == Status::Failed) return {};
  Enqueued enqueued;
  enqueued.isTaken = true;
  enqueued.isFirst = std::exchange(status_, Status::Rendering) == Status::Unknown;
  enqueued.isAwaited = queue_.push(std::move(sample));
  return enqueued;
}

RenderedSamples::Flushed RenderedSamples::flush(Image image) {
  MutexLock lock(changeMutex_);
  Flushed flushed;
  flushed.held = queue_.flush();
  if (image == Image::Keep) {
    frames_->keepPicture();
    return flushed;
  }
  frames_->show({});
  flushed.recovers = status_ == Status::Failed;
  if (flushed.recovers) status_ = Status::Unknown;
  error_ = nullptr;
  return flushed;
}

bool RenderedSamples::give(SampleQueueDecoder::Picture picture, uint64_t generation, CMTime now) {
  MutexLock lock(changeMutex_);
  if (queue_.generation() != generation) return false;
  if (!picture.atOnce) {
    frames_->push(std::move(picture.frame));
    return frames_->advance(now);
  }
  frames_->show(std::move(picture.frame));
  if (picture.isStandIn) frames_->keepPicture();
  return true;
}

void RenderedSamples::dropQueued(uint64_t generation) {
  MutexLock lock(changeMutex_);
  if (queue_.generation() == generation) frames_->dropQueued();
}

bool RenderedSamples::fail(NSErrorPtr error, uint64_t generation) {
  MutexLock lock(changeMutex_);
  if (queue_.generation() != generation) return false;
  status_ = Status::Failed;
  error_ = std::move(error);
  return true;
}

RendererStatus RenderedSamples::status() const {
  MutexLock lock(changeMutex_);
  return status_;
}

NSErrorPtr RenderedSamples::error() const {
  MutexLock lock(changeMutex_);
  return error_;
}

}  // namespace zaffo::media
