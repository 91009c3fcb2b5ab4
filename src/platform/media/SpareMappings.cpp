// SPDX-License-Identifier: Apache-2.0
#include "platform/media/SpareMappings.h"

#include <algorithm>
#include <utility>

#include "platform/TimeSource.h"
#include "platform/dispatch/DispatchTimer.h"

namespace zaffo::media {

namespace {
constexpr int64_t kLifetimeNanoseconds = 500'000'000;
}  // namespace

SpareMappings& SpareMappings::shared() {
  static auto* const spares = new SpareMappings;  // frames may be let go of while the process ends
  return *spares;
}

MappedMemory SpareMappings::take(std::size_t bytes) {
  const MutexLock lock(keptMutex_);
  const auto found = std::ranges::find(kept_, bytes, &MappedMemory::size);
  if (found == kept_.end()) return {};
  MappedMemory memory = std::move(*found);
  kept_.erase(found);
  bytes_ -= bytes;
  return memory;
}

void SpareMappings::keep(MappedMemory memory) {
  {
    const MutexLock lock(keptMutex_);
    if (!memory || bytes_ + memory.size() > kMostBytes) return;
    bytes_ += memory.size();
    kept_.push_back(std::move(memory));
    if (std::exchange(isTimerSet_, true)) return;
  }
  // The timer holds itself until it has run.
  static_cast<void>(dispatch_timer_at(TimeSource::now() + kLifetimeNanoseconds,
                                      dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_BACKGROUND),
                                      [this] { clear(); }));
}

std::size_t SpareMappings::bytes() const {
  const MutexLock lock(keptMutex_);
  return bytes_;
}

void SpareMappings::clear() {
  std::vector<MappedMemory> gone;  // without the lock
  const MutexLock lock(keptMutex_);
  gone.swap(kept_);
  isTimerSet_ = false;
  bytes_ = 0;
}

}  // namespace zaffo::media
