// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/QueueBase.h"

#include <algorithm>

namespace zaffo {

namespace {
thread_local const QueueBase* currentQueue = nullptr;
}  // namespace

QueueBase::CurrentScope::CurrentScope(const QueueBase& queue)
    : outer_(std::exchange(currentQueue, &queue)) {}

QueueBase::CurrentScope::~CurrentScope() {
  currentQueue = outer_;
}

const QueueBase* QueueBase::current() {
  return currentQueue;
}

bool QueueBase::isCurrent() const {
  return currentQueue == this;
}

void QueueBase::setSpecific(const void* key, void* context) {
  MutexLock lock(specificsMutex_);
  std::erase_if(specifics_, [key](const auto& entry) { return entry.first == key; });
  if (context) specifics_.emplace_back(key, context);
}

void* QueueBase::specific(const void* key) const {
  MutexLock lock(specificsMutex_);
  const auto entry = std::find_if(specifics_.begin(), specifics_.end(),
                                  [key](const auto& other) { return other.first == key; });
  return entry == specifics_.end() ? nullptr : entry->second;
}

}  // namespace zaffo
