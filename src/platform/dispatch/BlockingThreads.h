#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>

#include "platform/Mutex.h"
#include "platform/dispatch/Executor.h"
#include "platform/dispatch/ThreadSet.h"

namespace zaffo {

/// The threads for work that waits for the outside world: a new one starts whenever none is free,
/// and one that has been idle for a while ends. Never destroyed. Thread: any.
class BlockingThreads final : public Executor {
 public:
  /// The process's set, whose idle threads live for ten seconds.
  [[nodiscard]] static BlockingThreads& shared();

  explicit BlockingThreads(std::chrono::milliseconds freeLifetime) : freeLifetime_(freeLifetime) {}

  void execute(std::shared_ptr<Runnable> work) override;
  [[nodiscard]] bool shouldYield() const override { return stopped_; }

  /// Threads alive, free or not.
  [[nodiscard]] int size() const { return threads_.size(); }

 private:
  struct ExitGuard;

  ~BlockingThreads() override = default;
  void stop();
  void serve();
  void becomeFree();
  [[nodiscard]] std::shared_ptr<Runnable> waitForWork();

  const std::chrono::milliseconds freeLifetime_;
  Mutex waitingWorkMutex_;
  std::condition_variable_any workArrived_;
  std::deque<std::shared_ptr<Runnable>> waitingWork_ ZAFFO_GUARDED_BY(waitingWorkMutex_);
  size_t freeThreads_ ZAFFO_GUARDED_BY(waitingWorkMutex_) = 0;
  std::atomic<bool> stopped_{false};  // set under the mutex, so that no waiting thread misses it
  ThreadSet threads_;
};

}  // namespace zaffo
