// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/SerialQueue.h"

#include <utility>

namespace zaffo {

namespace {
/// Capacity that an idle queue keeps so that the next blocks need no allocation.
constexpr size_t kKeptCapacity = 64;
}  // namespace

void SerialQueue::async(DispatchBlock block) {
  if (!block) return;
  bool wasEmpty = false;
  {
    MutexLock lock(incomingMutex_);
    incoming_.push_back(std::move(block));
    wasEmpty = !std::exchange(scheduled_, true);
  }
  if (wasEmpty) executor_.load()->execute(shared_from_this());
}

void SerialQueue::run() {
  const CurrentScope current(*this);
  const Executor* const from = executor_;
  do {
    if (nextInBatch_ == batch_.size() && !refillBatch()) return;
    const DispatchBlock block = std::move(batch_[nextInBatch_++]);
    block();
  } while (executor_ == from && !from->shouldYield());
  executor_.load()->execute(shared_from_this());
}

/// Takes what has arrived. False when there is nothing; from then on another thread may run the
/// queue.
bool SerialQueue::refillBatch() {
  batch_.clear();
  nextInBatch_ = 0;
  if (batch_.capacity() > kKeptCapacity) batch_ = {};
  MutexLock lock(incomingMutex_);
  batch_.swap(incoming_);
  scheduled_ = !batch_.empty();
  return scheduled_;
}

}  // namespace zaffo
