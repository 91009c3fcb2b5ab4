// SPDX-License-Identifier: Apache-2.0
#include "platform/media/video/FrameStore.h"

#include <utility>

#include "platform/TimeSource.h"

namespace zaffo::media {

namespace {

/// A timer that rings a hair early would find nothing to draw.
constexpr int64_t kJustAfter = 1000;
/// Whoever draws may come this much later than planned, or than a frame is due by a timebase that
/// was changed since.
constexpr int64_t kPlanTolerance = 3'000'000;

}  // namespace

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
    plan_.reset();
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
  return advanceWhileLocked(time) &&
         !isPlannedWhileLocked(current_.presentation, TimeSource::now());
}

/// Whether whoever draws is to come for a frame, or for one before it, by the time it is due.
bool FrameStore::isPlannedWhileLocked(CMTime presentation, int64_t due) const {
  return plan_ && plan_->presentation <= presentation && plan_->host <= due + kPlanTolerance &&
         TimeSource::now() <= plan_->host + kPlanTolerance;
}

std::optional<int64_t> FrameStore::planNextDraw() {
  CMTime next = kCMTimeInvalid;
  {
    MutexLock lock(framesMutex_);
    plan_.reset();
    if (queue_.empty()) return std::nullopt;
    next = queue_.front().presentation;
  }
  const auto due = timebase()->hostTimeAtTime(next);
  if (!due || *due <= TimeSource::now()) return std::nullopt;  // it does not come, backwards say
  MutexLock lock(framesMutex_);
  plan_ = {*due + kJustAfter, next};
  return plan_->host;
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
  const auto timebase = this->timebase();
  MutexLock lock(framesMutex_);
  if (queue_.empty()) return std::nullopt;
  const CMTime next = queue_.front().presentation;
  const auto due = timebase->hostTimeAtTime(next);
  const bool isPlanned = due && isPlannedWhileLocked(next, *due);
  const bool patient = queue_.size() > few && (!somebodyDraws_ || isPlanned);
  return patient ? queue_[queue_.size() - few - 1].presentation : next;
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
