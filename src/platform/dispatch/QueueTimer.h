// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/Mutex.h"
#include "platform/dispatch/DispatchTimer.h"

namespace zaffo {

class TimerService;

/// The only kind of timer: a block, its queue, and optionally a period.
class QueueTimer final : public DispatchTimer, public std::enable_shared_from_this<QueueTimer> {
 public:
  static constexpr int64_t kOnce = 0;

  /// `period` in nanoseconds, or kOnce; `service`, which outlives it, is to fire it.
  QueueTimer(TimerService& service, int64_t period, DispatchQueuePtr queue, DispatchBlock block);

  void cancel() override;

  /// Hands a run to the queue, unless one is already waiting there. Called when a deadline is
  /// reached.
  void fire();

  [[nodiscard]] int64_t period() const { return period_; }
  [[nodiscard]] bool isCancelled() const { return cancelled_; }

 private:
  void run();

  TimerService& service_;
  const int64_t period_;
  std::atomic<bool> cancelled_{false};
  Mutex stateMutex_;
  DispatchQueuePtr queue_ ZAFFO_GUARDED_BY(stateMutex_);
  std::shared_ptr<const DispatchBlock> block_ ZAFFO_GUARDED_BY(stateMutex_);
  bool isRunQueued_ ZAFFO_GUARDED_BY(stateMutex_) = false;
};

}  // namespace zaffo
