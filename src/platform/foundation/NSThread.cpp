// SPDX-License-Identifier: Apache-2.0
#include "platform/foundation/NSThread.h"

#include <unistd.h>

#include <atomic>
#include <cstdint>

#include "platform/FatalError.h"

namespace zaffo {

namespace {

constexpr uint64_t kNobody = 0;
std::atomic<uint64_t> adoptedThread{kNobody};

/// A number for the calling thread that no later thread gets, unlike its system identifier.
uint64_t threadNumber() {
  static std::atomic<uint64_t> lastNumber{kNobody};
  thread_local const uint64_t number = ++lastNumber;
  return number;
}

bool isFirstThread() {
  thread_local const bool first = gettid() == getpid();
  return first;
}

}  // namespace

bool NSThread::isMainThread() {
  const uint64_t adopted = adoptedThread.load(std::memory_order_acquire);
  return adopted == kNobody ? isFirstThread() : adopted == threadNumber();
}

void NSThread::adoptMainThread() {
  adoptedThread.store(threadNumber(), std::memory_order_release);
}

void assertMainThread() {
#ifndef NDEBUG
  if (!NSThread::isMainThread()) fatalError("This operation belongs on the main thread.");
#endif
}

}  // namespace zaffo
