// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "platform/Mutex.h"
#include "platform/dispatch/Alarm.h"
#include "platform/dispatch/Asio.h"
#include "platform/dispatch/QueueTimer.h"
#include "platform/dispatch/ThreadSet.h"
#include "platform/dispatch/TimerHeap.h"

namespace zaffo {

/// Fires timers when they are due, and wakes as few threads for it as it can. Those of the main
/// queue are rung by the main loop, which sleeps on their alarm; all others by a worker that sleeps
/// until the earliest of them (a keeper) or, while none does, by a thread that waits in Asio for
/// the alarm. When the time source is replaced, that rings them all. Never destroyed. Thread: any.
class TimerService {
 public:
  static constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

  [[nodiscard]] static TimerService& shared();
  [[nodiscard]] static TimerService& ofMainQueue();

  /// Fires `timer` at `deadline`, and from then on with its period.
  void schedule(int64_t deadline, std::shared_ptr<QueueTimer> timer);

  /// Sweeps out cancelled timers when there are too many.
  void noteCancelled();

  /// Fires what is due. What is left to fire has its alarm set or its keeper when it returns.
  void ringDue();

  /// For a thread that goes to sleep: the machine's time until when it is to; kNever when it need
  /// not. Then it calls ringKept(), or endKeeping() when something else wakes it earlier.
  [[nodiscard]] int64_t beginKeeping();
  void ringKept(int64_t deadline);
  void endKeeping(int64_t deadline);

  /// Readable when ringDue() has something to do, unless a keeper will do it.
  [[nodiscard]] const Alarm& alarm() const { return alarm_; }

 private:
  struct ExitGuard;
  using Heap = TimerHeap<QueueTimer>;
  enum class RungBy { Thread, MainLoop };

  explicit TimerService(RungBy rungBy);
  ~TimerService() = delete;
  void stop();
  void startThreadWhileLocked() ZAFFO_REQUIRES(heapMutex_);
  void waitForAlarm();
  void alarmRang();
  void armWhileLocked() ZAFFO_REQUIRES(heapMutex_);
  void disarmWhileLocked() ZAFFO_REQUIRES(heapMutex_);
  void forgetKeptWhileLocked(int64_t deadline) ZAFFO_REQUIRES(heapMutex_);
  [[nodiscard]] bool isKeptWhileLocked(int64_t deadline) const ZAFFO_REQUIRES(heapMutex_);
  [[nodiscard]] Heap takeStaleWhileLocked() ZAFFO_REQUIRES(heapMutex_);
  [[nodiscard]] std::shared_ptr<QueueTimer> takeDue(int64_t now, uint64_t generation);

  const RungBy rungBy_;
  asio::io_context context_;
  asio::executor_work_guard<asio::io_context::executor_type> keepRunning_;
  ThreadSet thread_;
  Mutex heapMutex_;
  Alarm alarm_;                                // set under the mutex
  asio::posix::stream_descriptor alarmRings_;  // the same descriptor, for the thread
  Heap heap_ ZAFFO_GUARDED_BY(heapMutex_);
  std::vector<int64_t> kept_ ZAFFO_GUARDED_BY(heapMutex_);  // a deadline for each keeper asleep
  uint64_t generation_ ZAFFO_GUARDED_BY(heapMutex_) = 0;    // of the time source the heap is for
  int64_t armedDeadline_ ZAFFO_GUARDED_BY(heapMutex_) = kNever;
  size_t cancelledCount_ ZAFFO_GUARDED_BY(heapMutex_) = 0;  // an upper bound, since the last sweep
  bool threadStarted_ ZAFFO_GUARDED_BY(heapMutex_) = false;
};

}  // namespace zaffo
