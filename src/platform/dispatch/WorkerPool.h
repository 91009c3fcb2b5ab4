#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <deque>
#include <memory>
#include <thread>

#include "platform/Mutex.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/Executor.h"
#include "platform/dispatch/Semaphore.h"
#include "platform/dispatch/ThreadSet.h"

namespace zaffo {

/// The shared pool: a worker for each core, and one more for what must not wait for pictures that
/// are decoded on all the others (see MediaQueues.h). They wait at one semaphore. Work waits in one
/// lane per priority; the semaphore only counts it, and the worker that wakes takes the oldest from
/// the highest lane that has any. One per process, never destroyed. Thread: any.
class WorkerPool {
 public:
  [[nodiscard]] static WorkerPool& shared();
  [[nodiscard]] static unsigned workerCount() {
    return std::max(1U, std::thread::hardware_concurrency()) + 1;
  }

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
