#pragma once

#include <array>
#include <atomic>
#include <deque>
#include <memory>

#include "platform/Mutex.h"
#include "platform/dispatch/Asio.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/Executor.h"
#include "platform/dispatch/ThreadSet.h"

namespace zaffo {

/// The shared pool: as many workers as cores, waiting in one Asio context. Work waits in a lane a
/// priority; the context is only told that there is some, and the worker that wakes takes the
/// oldest of the highest lane. One for the process, never destroyed. Thread: any.
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
  void runHighest();
  [[nodiscard]] std::shared_ptr<Runnable> takeHighest();

  asio::io_context context_;
  asio::executor_work_guard<asio::io_context::executor_type> keepRunning_;
  std::array<std::unique_ptr<Lane>, kLaneCount> lanes_;
  std::atomic<int> waiting_{0};
  std::atomic<bool> stopped_{false};
  Mutex waitingWorkMutex_;
  std::array<std::deque<std::shared_ptr<Runnable>>, kLaneCount> waitingWork_
      ZAFFO_GUARDED_BY(waitingWorkMutex_);
  ThreadSet workers_;
};

}  // namespace zaffo
