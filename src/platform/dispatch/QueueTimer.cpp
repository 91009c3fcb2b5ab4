// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/QueueTimer.h"

#include <utility>

#include "platform/dispatch/TimerService.h"

namespace zaffo {

QueueTimer::QueueTimer(TimerService& service, int64_t period, DispatchQueuePtr queue,
                       DispatchBlock block)
    : service_(service),
      period_(period),
      queue_(std::move(queue)),
      block_(std::make_shared<const DispatchBlock>(std::move(block))) {}

void QueueTimer::cancel() {
  if (cancelled_.exchange(true)) return;
  {
    // What the block holds is released with no lock held: its destructor may do anything.
    DispatchQueuePtr queue;
    std::shared_ptr<const DispatchBlock> block;
    MutexLock lock(stateMutex_);
    queue.swap(queue_);
    block.swap(block_);
  }
  service_.noteCancelled();
}

void QueueTimer::fire() {
  DispatchQueuePtr queue;
  {
    MutexLock lock(stateMutex_);
    if (!block_ || std::exchange(isRunQueued_, true)) return;
    queue = queue_;
  }
  queue->async([self = shared_from_this()] { self->run(); });
}

void QueueTimer::run() {
  DispatchQueuePtr queue;
  std::shared_ptr<const DispatchBlock> block;
  {
    MutexLock lock(stateMutex_);
    isRunQueued_ = false;
    block = block_;
    if (period_ == kOnce) {
      block_ = nullptr;
      queue.swap(queue_);
    }
  }
  if (block && *block) (*block)();
}

}  // namespace zaffo
