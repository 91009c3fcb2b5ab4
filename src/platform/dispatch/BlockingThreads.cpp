// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/BlockingThreads.h"

#include <utility>

#include "platform/FatalError.h"
#include "platform/ThreadPriority.h"
#include "platform/dispatch/WorkCount.h"

namespace zaffo {

namespace {
constexpr std::chrono::seconds kFreeLifetime{10};
}  // namespace

/// Ends the free threads before the static objects that blocks may use are destroyed.
struct BlockingThreads::ExitGuard {
  explicit ExitGuard(BlockingThreads& threads) : threads_(threads) {}
  ~ExitGuard() {
    if (!threads_.threads_.isOfParent()) threads_.stop();
  }
  BlockingThreads& threads_;
};

BlockingThreads& BlockingThreads::shared() {
  static auto* const threads = new BlockingThreads(kFreeLifetime, kMostThreads);
  static const ExitGuard guard(*threads);
  return *threads;
}

BlockingThreads& BlockingThreads::storage() {
  static auto* const threads = new BlockingThreads(kFreeLifetime, kMostThreads);
  static const ExitGuard guard(*threads);
  return *threads;
}

void BlockingThreads::execute(std::shared_ptr<Runnable> work) {
  WorkCount::shared().begin();
  if (needsThread(std::move(work))) {
    startThread();
  } else {
    workArrived_.notify_one();
  }
}

/// Queues the work; whether one more thread is to be started for it.
bool BlockingThreads::needsThread(std::shared_ptr<Runnable> work) {
  MutexLock lock(waitingWorkMutex_);
  waitingWork_.push_back(std::move(work));
  // A free thread woken for earlier work counts as free until it has taken that work.
  if (waitingWork_.size() <= freeThreads_ || started_ == most_ || stopped_) return false;
  ++started_;
  return true;
}

void BlockingThreads::startThread() {
  if (threads_.start("zaffo-blocking", [this] { serve(); })) return;
  MutexLock lock(waitingWorkMutex_);
  if (--started_ == 0) fatalError("No thread could be started for a blocking dispatch queue.");
}

void BlockingThreads::serve() {
  lowerThreadPriority();
  becomeFree();
  while (auto work = waitForWork()) {
    work->run();
    work.reset();  // destroying it may queue more, which the count must not miss
    becomeFree();  // before the count ends: who waits for it finds this thread free
    WorkCount::shared().end();
  }
}

void BlockingThreads::becomeFree() {
  MutexLock lock(waitingWorkMutex_);
  ++freeThreads_;
}

/// The oldest waiting work, whose thread is no longer free; null when the calling thread is to end.
std::shared_ptr<Runnable> BlockingThreads::waitForWork() {
  const auto deadline = std::chrono::steady_clock::now() + freeLifetime_;
  MutexLock lock(waitingWorkMutex_);
  bool timedOut = false;
  while (waitingWork_.empty() && !stopped_ && !timedOut) {
    timedOut = workArrived_.wait_until(waitingWorkMutex_, deadline) == std::cv_status::timeout;
  }
  --freeThreads_;
  if (stopped_ || waitingWork_.empty()) {
    --started_;
    return nullptr;
  }
  auto work = std::move(waitingWork_.front());
  waitingWork_.pop_front();
  return work;
}

void BlockingThreads::stop() {
  {
    MutexLock lock(waitingWorkMutex_);
    stopped_ = true;
  }
  WorkCount::shared().giveUp();
  workArrived_.notify_all();
  threads_.waitAtExit();
}

}  // namespace zaffo
