#include "platform/TimeSource.h"

#include <atomic>
#include <chrono>

namespace zaffo {

namespace {
std::atomic<TimeSource*> replacementSource{nullptr};
}  // namespace

int64_t TimeSource::now() {
  if (const TimeSource* source = replacement()) return source->nanoseconds();
  const auto sinceOrigin = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(sinceOrigin).count();
}

TimeSource* TimeSource::replacement() { return replacementSource.load(std::memory_order_acquire); }

void TimeSource::replace(TimeSource* source) {
  replacementSource.store(source, std::memory_order_release);
}

}  // namespace zaffo
