// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <deque>
#include <memory>

#include "platform/Mutex.h"
#include "platform/dispatch/Executor.h"

namespace zaffo {

/// Lets no more than so many pieces of work at a time through to another executor, in order: the
/// rest of that one's threads stay free for others. Work gives way to what waits here, too, and
/// what waits for the outside world (OutsideWait) is not counted as long. Thread: any.
class BoundedExecutor final : public Executor {
 public:
  /// `inner` outlives it, and it outlives its work.
  BoundedExecutor(Executor& inner, unsigned limit) : inner_(inner), limit_(limit) {}

  void execute(std::shared_ptr<Runnable> work) override;
  [[nodiscard]] bool shouldYield() const override {
    return waiting_.load(std::memory_order_relaxed) > 0 || inner_.shouldYield();
  }

  /// For OutsideWait: the work that runs on the calling thread, if it was let through here, begins
  /// to wait, and has waited.
  static void beginWait();
  static void endWait();

 private:
  class Turn;

  [[nodiscard]] std::shared_ptr<Runnable> nextAfterTurn();
  void letNextThrough();
  void countAgain();

  Executor& inner_;
  const unsigned limit_;
  std::atomic<int> waiting_{0};
  Mutex waitingWorkMutex_;
  std::deque<std::shared_ptr<Runnable>> waitingWork_ ZAFFO_GUARDED_BY(waitingWorkMutex_);
  unsigned underWay_ ZAFFO_GUARDED_BY(waitingWorkMutex_) = 0;  // beyond the limit after a wait
};

}  // namespace zaffo
