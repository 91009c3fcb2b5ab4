// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/SpareWorkers.h"

namespace zaffo {

void SpareWorkers::beginWait() {
  waiting_.fetch_add(1, std::memory_order_relaxed);
  if (!fillPlace() && !start_()) leavePlaceEmpty();
}

/// False when a new worker is to be started for it.
bool SpareWorkers::fillPlace() {
  MutexLock lock(placesMutex_);
  if (tooMany_ > 0) {
    --tooMany_;
  } else if (parked_ > 0) {
    --parked_;
    ++calls_;
    called_.notify_one();
  } else if (spare_ == most_ || stopped_) {
    ++emptyPlaces_;
  } else {
    ++spare_;
    return false;
  }
  return true;
}

void SpareWorkers::leavePlaceEmpty() {
  MutexLock lock(placesMutex_);
  --spare_;
  ++emptyPlaces_;
}

void SpareWorkers::endWait() {
  waiting_.fetch_sub(1, std::memory_order_relaxed);
  MutexLock lock(placesMutex_);
  if (emptyPlaces_ > 0) {
    --emptyPlaces_;
  } else {
    ++tooMany_;
  }
}

bool SpareWorkers::mayGoOn() {
  return tooMany_.load(std::memory_order_relaxed) == 0 || park();
}

bool SpareWorkers::park() {
  const auto deadline = std::chrono::steady_clock::now() + parkedLifetime_;
  MutexLock lock(placesMutex_);
  if (tooMany_ == 0) return true;
  --tooMany_;
  ++parked_;
  bool timedOut = false;
  while (calls_ == 0 && !stopped_ && !timedOut) {
    timedOut = called_.wait_until(placesMutex_, deadline) == std::cv_status::timeout;
  }
  if (calls_ > 0) {
    --calls_;
    return true;
  }
  --parked_;
  --spare_;
  return false;
}

void SpareWorkers::stop() {
  MutexLock lock(placesMutex_);
  stopped_ = true;
  called_.notify_all();
}

int SpareWorkers::spare() const {
  MutexLock lock(placesMutex_);
  return spare_;
}

}  // namespace zaffo
