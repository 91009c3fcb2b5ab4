#pragma once

#include <cstdint>
#include <limits>
#include <memory>

#include "platform/Mutex.h"
#include "platform/dispatch/Asio.h"
#include "platform/dispatch/QueueTimer.h"
#include "platform/dispatch/ThreadSet.h"
#include "platform/dispatch/TimerHeap.h"

namespace zaffo {

/// Fires timers when they are due: from one thread that waits in Asio for the earliest deadline or,
/// when the time source is replaced, from its alarm. One per process, never destroyed. Thread: any.
class TimerService {
 public:
  [[nodiscard]] static TimerService& shared();

  /// Fires `timer` at `deadline`, and from then on with its period.
  void schedule(int64_t deadline, std::shared_ptr<QueueTimer> timer);

  /// Sweeps out cancelled timers when there are too many.
  void noteCancelled();

 private:
  struct ExitGuard;
  using Heap = TimerHeap<QueueTimer>;
  static constexpr int64_t kNotArmed = std::numeric_limits<int64_t>::max();

  TimerService();
  ~TimerService() = delete;
  void stop();
  void startThreadWhileLocked() ZAFFO_REQUIRES(heapMutex_);
  void armWhileLocked() ZAFFO_REQUIRES(heapMutex_);
  [[nodiscard]] Heap takeStaleWhileLocked() ZAFFO_REQUIRES(heapMutex_);
  void alarmRang();
  [[nodiscard]] std::shared_ptr<QueueTimer> takeDue();

  asio::io_context context_;
  asio::executor_work_guard<asio::io_context::executor_type> keepRunning_;
  ThreadSet thread_;
  Mutex heapMutex_;
  asio::steady_timer alarm_ ZAFFO_GUARDED_BY(heapMutex_);
  Heap heap_ ZAFFO_GUARDED_BY(heapMutex_);
  uint64_t generation_ ZAFFO_GUARDED_BY(heapMutex_) = 0;  // of the time source the heap is for
  int64_t armedDeadline_ ZAFFO_GUARDED_BY(heapMutex_) = kNotArmed;
  size_t cancelledCount_ ZAFFO_GUARDED_BY(heapMutex_) = 0;  // an upper bound, since the last sweep
  bool threadStarted_ ZAFFO_GUARDED_BY(heapMutex_) = false;
};

}  // namespace zaffo
