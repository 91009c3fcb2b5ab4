#pragma once

#include <array>
#include <atomic>
#include <deque>
#include <memory>

#include "platform/Mutex.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/Executor.h"
#include "platform/dispatch/Semaphore.h"
#include "platform/dispatch/ThreadSet.h"

namespace zaffo {

/// The shared pool: as many workers as cores, waiting at one semaphore. Work waits in one lane per
/// priority; the semaphore only counts it, and the worker that wakes takes the oldest from the
/// highest lane that has any. One per process, never destroyed. Thread: any.
class WorkerPool {
 public:
  [[nodiscard]] static WorkerPool& shared();

  /// The pool as seen from one priority; lives as long as the pool.
  [[nodiscard]] Executor& executor(DispatchQueuePriority priority);

 private:
  class Lane;
  struct ExitGuard;
  static constexpr size_t kLaneCount = 4;

  WorkerPool();
  ~WorkerPool() = delete;
  void stop();
  void execute(size_t lane, std::shared_ptr<Runnable> work);
  void work();
  void runHighest();
  [[nodiscard]] std::shared_ptr<Runnable> takeHighest();

  Semaphore work_;  // one per piece of work, and one for each worker that is to stop
  std::array<std::unique_ptr<Lane>, kLaneCount> lanes_;
  std::atomic<int> waiting_{0};
  std::atomic<bool> stopped_{false};
  Mutex waitingWorkMutex_;
  std::array<std::deque<std::shared_ptr<Runnable>>, kLaneCount> waitingWork_
      ZAFFO_GUARDED_BY(waitingWorkMutex_);
  ThreadSet workers_;
};

}  // namespace zaffo
