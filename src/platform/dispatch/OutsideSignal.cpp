// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/OutsideSignal.h"

#include <utility>

#include "platform/dispatch/OutsideWait.h"

namespace zaffo {

void OutsideSignal::announce() {
  MutexLock lock(announcedMutex_);
  isAnnounced_ = true;
  changed_.notify_one();
}

bool OutsideSignal::take() {
  MutexLock lock(announcedMutex_);
  return std::exchange(isAnnounced_, false);
}

void OutsideSignal::wait() {
  if (take()) return;
  const OutsideWait outside;
  MutexLock lock(announcedMutex_);
  while (!isAnnounced_) changed_.wait(announcedMutex_);
  isAnnounced_ = false;
}

}  // namespace zaffo
