// SPDX-License-Identifier: Apache-2.0
#include "platform/TimeSource.h"

#include <atomic>
#include <chrono>
#include <utility>

#include "platform/Mutex.h"
#include "platform/ReplacedTime.h"

namespace zaffo {

namespace {
std::atomic<TimeSource*> replacementSource{nullptr};
std::atomic<uint64_t> replaceCount{0};
/// Held while a replacement is asked, so that none is once replace() has returned.
Mutex askingMutex;
}  // namespace

int64_t TimeSource::now() {
  if (replacement()) {
    MutexLock lock(askingMutex);
    if (const TimeSource* source = replacement()) return source->nanoseconds();
  }
  const auto sinceOrigin = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(sinceOrigin).count();
}

TimeSource* TimeSource::replacement() {
  return replacementSource.load(std::memory_order_acquire);
}

void TimeSource::replace(TimeSource* source) {
  MutexLock lock(askingMutex);
  replacementSource.store(source, std::memory_order_release);
  replaceCount.fetch_add(1, std::memory_order_acq_rel);
}

uint64_t TimeSource::generation() {
  return replaceCount.load(std::memory_order_acquire);
}

bool setReplacementAlarm(int64_t deadline, std::function<void()> toRing) {
  if (!TimeSource::replacement()) return false;
  MutexLock lock(askingMutex);
  TimeSource* const source = TimeSource::replacement();
  if (source) source->setAlarm(deadline, std::move(toRing));
  return source != nullptr;
}

}  // namespace zaffo
