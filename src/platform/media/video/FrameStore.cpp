#include "platform/media/video/FrameStore.h"

#include <utility>

namespace zaffo::media {

void FrameStore::setTimebase(std::shared_ptr<const CMTimebase> timebase) {
  MutexLock lock(framesMutex_);
  timebase_.swap(timebase);
}

std::shared_ptr<const CMTimebase> FrameStore::timebase() const {
  MutexLock lock(framesMutex_);
  return timebase_;
}

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

void FrameStore::keepPicture() {
  std::deque<VideoFrame> forgotten;
  MutexLock lock(framesMutex_);
  forgotten.swap(queue_);
  current_.presentation = kCMTimeInvalid;
}

bool FrameStore::advance(CMTime time) {
  MutexLock lock(framesMutex_);
  return advanceWhileLocked(time);
}

bool FrameStore::advanceWhileLocked(CMTime time) {
  bool moved = false;
  while (!queue_.empty() && queue_.front().presentation <= time) {
    if (current_.buffer && !currentWasDrawn_) passOverWhileLocked();
    current_ = std::move(queue_.front());
    queue_.pop_front();
    currentWasDrawn_ = false;
    moved = true;
  }
  return moved;
}

/// A drawing that misses some frames is slow; one that misses more has ended.
void FrameStore::passOverWhileLocked() {
  constexpr int kUndrawnUntilNobodyDraws = 15;
  if (!somebodyDraws_) return;
  ++dropped_;
  if (++undrawnInARow_ == kUndrawnUntilNobodyDraws) {
    somebodyDraws_ = false;
    dropped_ -= kUndrawnUntilNobodyDraws;
  }
}

CVPixelBufferPtr FrameStore::bufferAtHostTime(int64_t hostNanoseconds) {
  const CMTime time = timebase()->timeAtHostTime(hostNanoseconds);
  bool began = false;
  CVPixelBufferPtr buffer;
  {
    MutexLock lock(framesMutex_);
    advanceWhileLocked(time);
    buffer = current_.buffer;
    if (buffer) {
      currentWasDrawn_ = true;
      undrawnInARow_ = 0;
      began = !std::exchange(somebodyDraws_, true);
    }
  }
  if (began && drawingBegan_) drawingBegan_();
  return buffer;
}

bool FrameStore::hasFrame() const {
  MutexLock lock(framesMutex_);
  return current_.buffer != nullptr;
}

CMTime FrameStore::shownTime() const {
  MutexLock lock(framesMutex_);
  return current_.buffer ? current_.presentation : kCMTimeInvalid;
}

std::size_t FrameStore::queued() const {
  MutexLock lock(framesMutex_);
  return queue_.size();
}

std::optional<CMTime> FrameStore::nextWake(std::size_t few) const {
  MutexLock lock(framesMutex_);
  if (queue_.empty()) return std::nullopt;
  const bool patient = !somebodyDraws_ && queue_.size() > few;
  return queue_[patient ? queue_.size() - few - 1 : 0].presentation;
}

void FrameStore::noteLate(std::size_t count) {
  MutexLock lock(framesMutex_);
  if (somebodyDraws_) dropped_ += count;
}

bool FrameStore::somebodyDraws() const {
  MutexLock lock(framesMutex_);
  return somebodyDraws_;
}

uint64_t FrameStore::droppedFrames() const {
  MutexLock lock(framesMutex_);
  return dropped_;
}

}  // namespace zaffo::media
