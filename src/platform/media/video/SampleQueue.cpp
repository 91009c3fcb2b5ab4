// SPDX-License-Identifier: Apache-2.0
#include "platform/media/video/SampleQueue.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace zaffo::media {

namespace {

/// More than the two seconds that a paused session reads ahead.
constexpr CMTime kMostAhead = CMTimeMake(4, 1);
constexpr CMTime kAmpleAhead = CMTimeMake(3, 1);
/// Two seconds at 60 Mbit/s.
constexpr std::size_t kMostBytes = std::size_t{16} << 20;
constexpr std::size_t kAmpleBytes = kMostBytes / 4 * 3;
constexpr std::size_t kMostKeptBytes = std::size_t{8} << 20;

/// What a sample costs, with what stands around its bytes.
std::size_t bytesOf(const QueuedSample& queued) {
  constexpr std::size_t kAround = 512;
  return kAround + static_cast<std::size_t>(queued.sample.packet->size);
}

bool isShown(const Sample& sample) {
  return !sample.decodeOnly && CMTIME_IS_NUMERIC(sample.presentation);
}

CMTime latest(CMTime one, CMTime other) {
  if (!CMTIME_IS_NUMERIC(other)) return one;
  return CMTIME_IS_NUMERIC(one) ? CMTimeMaximum(one, other) : other;
}

}  // namespace

bool SampleQueue::push(QueuedSample sample) {
  auto queued = std::make_shared<QueuedSample>(std::move(sample));
  MutexLock lock(samplesMutex_);
  const Sample& s = queued->sample;
  horizon_.pass(s);
  queued->horizon = horizon_.time();
  latest_ = latest(latest_, s.presentation);
  const bool isFirst = samples_.empty() && forgotten_ == 0;
  if (!isFirst) decodeOnlyRun_.sent(s);
  if (isShown(s)) decodeOnlyRun_.gave(s.presentation);
  waitingBytes_ += bytesOf(*queued);
  const bool tells = queued->displayImmediately || s.isDiscontinuity;
  samples_.push_back(std::move(queued));
  return std::exchange(awaited_, false) || tells;
}

SampleQueue::Held SampleQueue::flush() {
  Held held;
  MutexLock lock(samplesMutex_);
  held.swap(samples_);
  ++generation_;
  next_ = 0;
  forgotten_ = 0;
  waitingBytes_ = keptBytes_ = 0;
  restartPoints_.clear();
  decodeOnlyRun_ = {};
  horizon_ = {};
  latest_ = settled_ = kCMTimeInvalid;
  awaited_ = true;
  return held;
}

/// How long it takes until all that waits is due.
CMTime SampleQueue::aheadWhileLocked(CMTime now) const {
  if (next_ == samples_.size() || CMTIME_IS_INVALID(latest_)) return kCMTimeZero;
  const CMTime first = samples_[next_]->sample.presentation;
  return latest_ - (CMTIME_IS_NUMERIC(first) ? CMTimeMaximum(first, now) : now);
}

bool SampleQueue::hasRoom(CMTime now) const {
  MutexLock lock(samplesMutex_);
  return waitingBytes_ < kMostBytes && aheadWhileLocked(now) < kMostAhead;
}

bool SampleQueue::reaches(CMTime time) const {
  MutexLock lock(samplesMutex_);
  return horizon_.time() > time;
}

bool SampleQueue::hasAmpleRoom(CMTime now) const {
  MutexLock lock(samplesMutex_);
  return waitingBytes_ <= kAmpleBytes && aheadWhileLocked(now) <= kAmpleAhead;
}

uint64_t SampleQueue::generation() const {
  MutexLock lock(samplesMutex_);
  return generation_;
}

SampleQueue::Outlook SampleQueue::outlook(uint64_t generation, CMTime after, CMTime now) {
  Outlook outlook;
  MutexLock lock(samplesMutex_);
  outlook.stale = generation != generation_;
  if (outlook.stale) return outlook;
  std::size_t sync = next_, syncBefore = next_;
  for (std::size_t i = next_; i < samples_.size(); ++i) {
    const Sample& sample = samples_[i]->sample;
    outlook.complete = samples_[i]->horizon > now;
    if (outlook.complete) break;
    if (sample.sync) syncBefore = std::exchange(sync, i);
    if (!isShown(sample) || sample.presentation > now) continue;
    if (CMTIME_IS_VALID(after) && sample.presentation <= after) continue;
    if (CMTIME_IS_VALID(outlook.due) && sample.presentation < outlook.due) continue;
    outlook.due = sample.presentation;
    // What follows a sync sample and is shown before it leans on what precedes that.
    const bool leads = sample.presentation < samples_[sync]->sample.presentation;
    outlook.skippable = (leads ? syncBefore : sync) - next_;
  }
  if (outlook.complete) settled_ = latest(settled_, now);
  outlook.complete = CMTIME_IS_VALID(settled_) && now <= settled_;
  if (!outlook.complete) awaited_ = true;
  return outlook;
}

QueuedSamplePtr SampleQueue::next(uint64_t generation) {
  MutexLock lock(samplesMutex_);
  if (generation != generation_) return nullptr;
  if (next_ < samples_.size()) return samples_[next_];
  awaited_ = true;
  return nullptr;
}

void SampleQueue::markSent(uint64_t generation) {
  Held forgotten;
  MutexLock lock(samplesMutex_);
  if (generation != generation_) return;
  const QueuedSample& sent = *samples_[next_];
  const std::size_t bytes = bytesOf(sent);
  waitingBytes_ -= bytes;
  keptBytes_ += bytes;
  if (sent.sample.sync && next_ > 0) restartPoints_.push_back({forgotten_ + next_, {}});
  if (isShown(sent.sample) && !restartPoints_.empty() &&
      CMTIME_IS_INVALID(restartPoints_.back().firstShown)) {
    restartPoints_.back().firstShown = sent.sample.presentation;
  }
  ++next_;
  if (keptBytes_ > kMostKeptBytes) forgetWhileLocked(next_, forgotten);
}

/// Forgets the first `count`, all of which were sent.
void SampleQueue::forgetWhileLocked(std::size_t count, Held& forgotten) {
  for (std::size_t i = 0; i < count; ++i) {
    keptBytes_ -= bytesOf(*samples_.front());
    forgotten.push_back(std::move(samples_.front()));
    samples_.pop_front();
  }
  next_ -= count;
  forgotten_ += count;
  while (!restartPoints_.empty() && restartPoints_.front().position <= forgotten_) {
    restartPoints_.pop_front();
  }
}

std::size_t SampleQueue::skip(uint64_t generation, std::size_t count) {
  Held forgotten;
  MutexLock lock(samplesMutex_);
  if (generation != generation_) return 0;
  std::size_t shown = 0;
  for (; count > 0; --count, ++next_) {
    if (isShown(samples_[next_]->sample)) ++shown;
    const std::size_t bytes = bytesOf(*samples_[next_]);
    waitingBytes_ -= bytes;
    keptBytes_ += bytes;
  }
  forgetWhileLocked(next_, forgotten);
  return shown;
}

void SampleQueue::forgetSent(uint64_t generation) {
  Held forgotten;
  MutexLock lock(samplesMutex_);
  if (generation == generation_) forgetWhileLocked(next_, forgotten);
}

bool SampleQueue::startsSyncWhileLocked() const {
  return !samples_.empty() && samples_.front()->sample.sync;
}

bool SampleQueue::rewind(uint64_t generation) {
  MutexLock lock(samplesMutex_);
  return generation == generation_ && rewindWhileLocked();
}

bool SampleQueue::rewindTo(uint64_t generation, CMTime time) {
  MutexLock lock(samplesMutex_);
  if (generation != generation_) return false;
  const bool hasOne = std::ranges::any_of(samples_, [time](const QueuedSamplePtr& queued) {
    return isShown(queued->sample) && queued->sample.presentation <= time;
  });
  return hasOne && rewindWhileLocked();
}

bool SampleQueue::rewindWhileLocked() {
  if (!startsSyncWhileLocked()) return false;
  next_ = 0;
  waitingBytes_ += std::exchange(keptBytes_, 0);
  restartPoints_.clear();
  return true;
}

void SampleQueue::trim(uint64_t generation, CMTime shown) {
  Held forgotten;
  MutexLock lock(samplesMutex_);
  if (generation != generation_ || CMTIME_IS_INVALID(shown)) return;
  while (!restartPoints_.empty() && restartPoints_.front().firstShown <= shown) {
    const uint64_t position = restartPoints_.front().position;
    forgetWhileLocked(static_cast<std::size_t>(position - forgotten_), forgotten);
  }
}

std::size_t SampleQueue::framesForDecodeOnlyRun() const {
  MutexLock lock(samplesMutex_);
  return decodeOnlyRun_.framesAhead();
}

bool SampleQueue::keepsSent() const {
  MutexLock lock(samplesMutex_);
  return next_ > 0 && startsSyncWhileLocked();
}

int64_t SampleQueue::pixelsToDecodeAgain() const {
  MutexLock lock(samplesMutex_);
  if (next_ == 0) return 0;
  if (!startsSyncWhileLocked()) return std::numeric_limits<int64_t>::max();
  const CMFormatDescription& format = *samples_.front()->format;
  return static_cast<int64_t>(next_) * format.width() * format.height();
}

}  // namespace zaffo::media
