// SPDX-License-Identifier: Apache-2.0
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
#include "platform/dispatch/SpareWorkers.h"
#include "platform/dispatch/ThreadSet.h"

namespace zaffo {

/// The shared pool: a worker for each core, one more for what must not wait for pictures that are
/// decoded on all the others (see MediaQueues.h), and spare ones in the place of those that wait
/// for the outside world (OutsideWait). They wait at one semaphore. Work waits in one lane per
/// priority; the semaphore only counts it, and the worker that wakes takes the oldest from the
/// highest lane that has any. One per process, never destroyed. Thread: any.
class WorkerPool {
 public:
  /// Spare workers at most. When as many wait, and then all the others, nothing goes on.
  static constexpr int kMostSpare = 64;
  /// While this many workers wait, no background work is begun: thumbnails of files that stall,
  /// however many, leave spare workers for the playing of others.
  static constexpr int kMostWaitingForBackground = 32;

  [[nodiscard]] static WorkerPool& shared();
  [[nodiscard]] static unsigned workerCount() {
    return std::max(1U, std::thread::hardware_concurrency()) + 1;
  }
  /// Whether the caller is one of its workers.
  [[nodiscard]] static bool isWorker();

  /// The pool as seen from one priority; lives as long as the pool.
  [[nodiscard]] Executor& executor(DispatchQueuePriority priority);

  /// For OutsideWait: the calling worker begins to wait, and has waited.
  void beginWait() { spares_.beginWait(); }
  void endWait();

 private:
  class Lane;
  struct ExitGuard;
  static constexpr size_t kLaneCount = 4, kBackgroundLane = 3;

  WorkerPool();
  ~WorkerPool() = delete;
  void stop();
  void execute(size_t lane, std::shared_ptr<Runnable> work);
  [[nodiscard]] bool startWorker();
  void work();
  [[nodiscard]] bool awaitWork();
  void runHighest();
  [[nodiscard]] std::shared_ptr<Runnable> takeHighest();
  [[nodiscard]] bool mayBegin(size_t lane) const;

  Semaphore work_;  // one per piece of work, and one for each worker that is to stop
  std::array<std::unique_ptr<Lane>, kLaneCount> lanes_;
  std::atomic<int> waiting_{0};
  std::atomic<bool> stopped_{false};
  Mutex waitingWorkMutex_;
  std::array<std::deque<std::shared_ptr<Runnable>>, kLaneCount> waitingWork_
      ZAFFO_GUARDED_BY(waitingWorkMutex_);
  int withheld_ ZAFFO_GUARDED_BY(waitingWorkMutex_) = 0;  // work that work_ does not count
  std::atomic<int> started_{0};
  ThreadSet workers_;
  SpareWorkers spares_;
};

}  // namespace zaffo
