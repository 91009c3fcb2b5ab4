// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/MainQueue.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <chrono>
#include <utility>

#include "platform/FatalError.h"
#include "platform/dispatch/TimerService.h"

namespace zaffo {

namespace {

constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;

int createEventDescriptor() {
  const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (descriptor < 0) fatalError("No event descriptor could be created for the main queue.");
  return descriptor;
}

/// Readable while one of the two is.
int createDescriptorOver(int first, int second) {
  const int descriptor = epoll_create1(EPOLL_CLOEXEC);
  for (const int each : {first, second}) {
    epoll_event event{};
    event.events = EPOLLIN;
    if (epoll_ctl(descriptor, EPOLL_CTL_ADD, each, &event) != 0) {
      fatalError("No descriptor could be created for the main loop.");
    }
  }
  return descriptor;
}

int64_t machineNow() {
  return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Waits until readable; false when interrupted by a signal.
bool pollOnce(int descriptor, const timespec* timeout) {
  pollfd polled{descriptor, POLLIN, 0};
  return ppoll(&polled, 1, timeout, nullptr) >= 0;
}

}  // namespace

MainQueue& MainQueue::shared() {
  static auto* const queue = new MainQueue;
  return *queue;
}

MainQueue::MainQueue()
    : QueueBase("com.zaffoapp.main-thread"),
      signalDescriptor_(createEventDescriptor()),
      fileDescriptor_(createDescriptorOver(signalDescriptor_,
                                           TimerService::ofMainQueue().alarm().descriptor())) {}

void MainQueue::async(DispatchBlock block) {
  if (!block) return;
  bool mustSignal = false;
  {
    MutexLock lock(blocksMutex_);
    blocks_.push_back(std::move(block));
    mustSignal = mustSignalWhileLocked();
  }
  if (mustSignal) signal();
}

void MainQueue::wake() {
  bool mustSignal = false;
  {
    MutexLock lock(blocksMutex_);
    mustSignal = mustSignalWhileLocked();
  }
  if (mustSignal) signal();
}

bool MainQueue::mustSignalWhileLocked() {
  return !std::exchange(signalled_, true);
}

/// Not while locked: the main thread would wake, take the processor and wait for a lock held by a
/// thread of lower priority, which then has no processor.
void MainQueue::signal() const {
  eventfd_write(signalDescriptor_, 1);
}

void MainQueue::clearSignalWhileLocked() {
  signalled_ = false;
  eventfd_t ignored = 0;
  eventfd_read(signalDescriptor_, &ignored);
}

int MainQueue::runTurn(const std::function<bool()>& stops) {
  const CurrentScope current(*this);
  TimerService::ofMainQueue().ringDue();
  const uint64_t end = endOfTurn();
  int count = 0;
  while (DispatchBlock block = takeBefore(end)) {
    ++count;
    block();
    block = nullptr;  // what the block holds is destroyed before the next one runs
    if (stops()) break;
  }
  return count;
}

/// The value taken_ will have once the last block now queued is taken; also clears a wake-up, and a
/// signal that came after its block was taken.
uint64_t MainQueue::endOfTurn() {
  MutexLock lock(blocksMutex_);
  if (blocks_.empty()) clearSignalWhileLocked();
  return taken_ + blocks_.size();
}

/// The next block of a turn that ends at `end`; empty when a turn inside this one has run it.
DispatchBlock MainQueue::takeBefore(uint64_t end) {
  MutexLock lock(blocksMutex_);
  if (taken_ >= end || blocks_.empty()) return nullptr;
  DispatchBlock block = std::move(blocks_.front());
  blocks_.pop_front();
  ++taken_;
  if (blocks_.empty()) clearSignalWhileLocked();
  return block;
}

void MainQueue::wait(int64_t timeout) {
  if (timeout < 0) {
    while (!pollOnce(fileDescriptor_, nullptr)) {
    }
    return;
  }
  const int64_t start = machineNow();
  int64_t left = timeout;
  do {
    const timespec span{left / kNanosecondsPerSecond, left % kNanosecondsPerSecond};
    if (pollOnce(fileDescriptor_, &span)) return;
    left = timeout - (machineNow() - start);
  } while (left > 0);
}

}  // namespace zaffo
