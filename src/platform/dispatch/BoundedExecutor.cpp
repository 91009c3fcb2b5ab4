#include "platform/dispatch/BoundedExecutor.h"

#include <utility>

namespace zaffo {

/// A piece of work that was let through.
class BoundedExecutor::Turn final : public Runnable {
 public:
  Turn(BoundedExecutor& bound, std::shared_ptr<Runnable> work)
      : bound_(bound), work_(std::move(work)) {}

  void run() override {
    std::exchange(work_, nullptr)->run();
    if (auto next = bound_.nextAfterTurn()) {
      bound_.inner_.execute(std::make_shared<Turn>(bound_, std::move(next)));
    }
  }

 private:
  BoundedExecutor& bound_;
  std::shared_ptr<Runnable> work_;
};

void BoundedExecutor::execute(std::shared_ptr<Runnable> work) {
  {
    MutexLock lock(waitingWorkMutex_);
    if (underWay_ == limit_) {
      waitingWork_.push_back(std::move(work));
      waiting_.fetch_add(1, std::memory_order_relaxed);
      return;
    }
    ++underWay_;
  }
  inner_.execute(std::make_shared<Turn>(*this, std::move(work)));
}

/// The work whose turn it is now that one is over; null when none waits.
std::shared_ptr<Runnable> BoundedExecutor::nextAfterTurn() {
  MutexLock lock(waitingWorkMutex_);
  if (waitingWork_.empty()) {
    --underWay_;
    return nullptr;
  }
  auto next = std::move(waitingWork_.front());
  waitingWork_.pop_front();
  waiting_.fetch_sub(1, std::memory_order_relaxed);
  return next;
}

}  // namespace zaffo
