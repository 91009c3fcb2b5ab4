// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/BoundedExecutor.h"

#include <utility>

namespace zaffo {

/// A piece of work that was let through. One bound may lie within another.
class BoundedExecutor::Turn final : public Runnable {
 public:
  Turn(BoundedExecutor& bound, std::shared_ptr<Runnable> work)
      : bound_(bound), work_(std::move(work)) {}

  void run() override {
    outer_ = std::exchange(innermost, this);
    std::exchange(work_, nullptr)->run();
    innermost = outer_;
    bound_.letNextThrough();
  }

  /// Calls `operation` on each bound that the calling thread's work was let through.
  static void each(void (BoundedExecutor::*operation)()) {
    for (const Turn* turn = innermost; turn; turn = turn->outer_) (turn->bound_.*operation)();
  }

 private:
  static inline thread_local Turn* innermost = nullptr;  ///< of the calling thread

  BoundedExecutor& bound_;
  std::shared_ptr<Runnable> work_;
  Turn* outer_ = nullptr;
};

void BoundedExecutor::execute(std::shared_ptr<Runnable> work) {
  {
    MutexLock lock(waitingWorkMutex_);
    if (underWay_ >= limit_) {
      waitingWork_.push_back(std::move(work));
      waiting_.fetch_add(1, std::memory_order_relaxed);
      return;
    }
    ++underWay_;
  }
  inner_.execute(std::make_shared<Turn>(*this, std::move(work)));
}

/// The work whose turn it is now that one is over or waits; null when none is to be let through.
std::shared_ptr<Runnable> BoundedExecutor::nextAfterTurn() {
  MutexLock lock(waitingWorkMutex_);
  if (waitingWork_.empty() || underWay_ > limit_) {
    --underWay_;
    return nullptr;
  }
  auto next = std::move(waitingWork_.front());
  waitingWork_.pop_front();
  waiting_.fetch_sub(1, std::memory_order_relaxed);
  return next;
}

void BoundedExecutor::letNextThrough() {
  if (auto next = nextAfterTurn()) inner_.execute(std::make_shared<Turn>(*this, std::move(next)));
}

void BoundedExecutor::countAgain() {
  MutexLock lock(waitingWorkMutex_);
  ++underWay_;
}

void BoundedExecutor::beginWait() {
  Turn::each(&BoundedExecutor::letNextThrough);
}

void BoundedExecutor::endWait() {
  Turn::each(&BoundedExecutor::countAgain);
}

}  // namespace zaffo
