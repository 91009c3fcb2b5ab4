// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/LayerStatus.h"

#include <utility>

#include "platform/dispatch/DispatchQueue.h"

namespace zaffo {

KeyValueObservation LayerStatus::observe(std::function<void()> changed) {
  return told_.observe([changed = std::move(changed)](Status, Status) { changed(); });
}

void LayerStatus::noteSample() {
  {
    MutexLock lock(changesMutex_);
    if (std::exchange(hadSample_, true)) return;
  }
  // The first block may run before one that was put there after it; the second comes after those.
  dispatch_async(dispatch_get_main_queue(), [weakSelf = weak_from_this()] {
    dispatch_async(dispatch_get_main_queue(), [weakSelf] {
      if (const auto self = weakSelf.lock()) self->open();
    });
  });
}

void LayerStatus::noteChange() {
  {
    MutexLock lock(changesMutex_);
    const Status present = present_();
    if (present == latest_) return;
    latest_ = present;
    untold_.push_back(present);
  }
  tell();
}

void LayerStatus::open() {
  {
    MutexLock lock(changesMutex_);
    isOpen_ = true;
  }
  tell();
}

/// Tells what has not been told, unless somebody is at it: that one tells the rest.
void LayerStatus::tell() {
  {
    MutexLock lock(changesMutex_);
    if (!isOpen_ || std::exchange(isTelling_, true)) return;
  }
  while (const auto next = takeNext()) told_.set(*next);
}

std::optional<LayerStatus::Status> LayerStatus::takeNext() {
  MutexLock lock(changesMutex_);
  if (untold_.empty()) {
    isTelling_ = false;
    return std::nullopt;
  }
  const Status next = untold_.front();
  untold_.pop_front();
  return next;
}

}  // namespace zaffo
