// SPDX-License-Identifier: Apache-2.0
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

/// Threads for work that waits for the outside world: a new one starts whenever none is free, up to
/// a bound, and one that has been idle for a while ends. Never destroyed. Thread: any.
class BlockingThreads final : public Executor {
 public:
  /// Threads of each of the process's sets at most, free or not. Idle ones live for ten seconds.
  static constexpr int kMostThreads = 64;

  /// The process's set for devices and windows.
  [[nodiscard]] static BlockingThreads& shared();
  /// The process's set for files. One of its own: however many files stall, devices open.
  [[nodiscard]] static BlockingThreads& storage();

  BlockingThreads(std::chrono::milliseconds freeLifetime, int most)
      : freeLifetime_(freeLifetime), most_(most) {}

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
  [[nodiscard]] bool needsThread(std::shared_ptr<Runnable> work);
  void startThread();

  const std::chrono::milliseconds freeLifetime_;
  const int most_;
  Mutex waitingWorkMutex_;
  std::condition_variable_any workArrived_;
  std::deque<std::shared_ptr<Runnable>> waitingWork_ ZAFFO_GUARDED_BY(waitingWorkMutex_);
  size_t freeThreads_ ZAFFO_GUARDED_BY(waitingWorkMutex_) = 0;
  int started_ ZAFFO_GUARDED_BY(waitingWorkMutex_) = 0;  // and not about to end
  std::atomic<bool> stopped_{false};  // set under the mutex, so that no waiting thread misses it
  ThreadSet threads_;
};

}  // namespace zaffo
