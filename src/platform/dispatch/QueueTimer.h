#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/Mutex.h"
#include "platform/dispatch/DispatchTimer.h"

namespace zaffo {

/// The one kind of timer there is: a block, its queue, and perhaps a period.
class QueueTimer final : public DispatchTimer, public std::enable_shared_from_this<QueueTimer> {
 public:
  static constexpr int64_t kOnce = 0;

  /// `period` in nanoseconds, or kOnce.
  QueueTimer(int64_t period, DispatchQueuePtr queue, DispatchBlock block);

  void cancel() override;

  /// Hands a run to the queue, unless one waits there already. Called when a deadline has come.
  void fire();

  [[nodiscard]] int64_t period() const { return period_; }
  [[nodiscard]] bool isCancelled() const { return cancelled_; }

 private:
  void run();

  const int64_t period_;
  std::atomic<bool> cancelled_{false};
  Mutex stateMutex_;
  DispatchQueuePtr queue_ ZAFFO_GUARDED_BY(stateMutex_);
  std::shared_ptr<const DispatchBlock> block_ ZAFFO_GUARDED_BY(stateMutex_);
  bool isRunQueued_ ZAFFO_GUARDED_BY(stateMutex_) = false;
};

}  // namespace zaffo
