#include "platform/media/FrameStore.h"

#include <utility>

namespace zaffo::media {

void FrameStore::show(VideoFrame frame) {
  std::deque<VideoFrame> forgotten;
  {
    MutexLock lock(framesMutex_);
    std::swap(current_, frame);
    currentWasDrawn_ = false;
    forgotten.swap(queue_);
  }
}

void FrameStore::push(VideoFrame frame) {
  MutexLock lock(framesMutex_);
  queue_.push_back(std::move(frame));
}

void FrameStore::dropQueued() {
  std::deque<VideoFrame> forgotten;
  MutexLock lock(framesMutex_);
  forgotten.swap(queue_);
}

bool FrameStore::advance(CMTime time) {
  MutexLock lock(framesMutex_);
  return advanceWhileLocked(time);
}

bool FrameStore::advanceWhileLocked(CMTime time) {
  bool moved = false;
  while (!queue_.empty() && queue_.front().presentation <= time) {
    if (moved && somebodyDraws_) ++dropped_;
    if (!moved && somebodyDraws_ && current_.buffer && !currentWasDrawn_) ++dropped_;
    current_ = std::move(queue_.front());
    queue_.pop_front();
    currentWasDrawn_ = false;
    moved = true;
  }
  return moved;
}

CVPixelBufferPtr FrameStore::bufferAtHostTime(int64_t hostNanoseconds) {
  const CMTime time = timebase_->timeAtHostTime(hostNanoseconds);
  MutexLock lock(framesMutex_);
  somebodyDraws_ = true;
  advanceWhileLocked(time);
  if (current_.buffer) currentWasDrawn_ = true;
  return current_.buffer;
}

bool FrameStore::hasFrame() const {
  MutexLock lock(framesMutex_);
  return current_.buffer != nullptr;
}

std::size_t FrameStore::queued() const {
  MutexLock lock(framesMutex_);
  return queue_.size();
}

std::optional<CMTime> FrameStore::nextPresentation() const {
  MutexLock lock(framesMutex_);
  if (queue_.empty()) return std::nullopt;
  return queue_.front().presentation;
}

uint64_t FrameStore::droppedFrames() const {
  MutexLock lock(framesMutex_);
  return dropped_;
}

}  // namespace zaffo::media
