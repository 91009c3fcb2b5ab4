// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/WorkerPool.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

#include "platform/FatalError.h"
#include "platform/ThreadPriority.h"
#include "platform/dispatch/TimerService.h"
#include "platform/dispatch/WorkCount.h"

namespace zaffo {

namespace {
constexpr std::chrono::seconds kParkedLifetime{10};
thread_local bool isWorkerThread = false;
/// The calling worker, awake anyway, runs the next piece of work that it announces.
thread_local bool keepsNextWork = false;
}  // namespace

class WorkerPool::Lane final : public Executor {
 public:
  Lane(WorkerPool& pool, size_t index) : pool_(pool), index_(index) {}
  void execute(std::shared_ptr<Runnable> work) override { pool_.execute(index_, std::move(work)); }
  [[nodiscard]] bool shouldYield() const override {
    return pool_.waiting_.load(std::memory_order_relaxed) > 0 ||
           pool_.stopped_.load(std::memory_order_relaxed);
  }

 private:
  WorkerPool& pool_;
  const size_t index_;
};

/// Ends the workers before the static objects that blocks may use are destroyed.
struct WorkerPool::ExitGuard {
  ~ExitGuard() {
    if (!shared().workers_.isOfParent()) shared().stop();
  }
};

WorkerPool& WorkerPool::shared() {
  static auto* const pool = new WorkerPool;
  static const ExitGuard guard;
  return *pool;
}

WorkerPool::WorkerPool() : spares_(kMostSpare, kParkedLifetime, [this] { return startWorker(); }) {
  for (size_t i = 0; i < kLaneCount; ++i) lanes_[i] = std::make_unique<Lane>(*this, i);
  for (unsigned i = 0; i < workerCount(); ++i) {
    if (!startWorker() && i == 0) {
      fatalError("No thread could be started for the dispatch queues.");
    }
  }
}

bool WorkerPool::isWorker() {
  return isWorkerThread;
}

bool WorkerPool::startWorker() {
  return workers_.start("zaffo-work-" + std::to_string(started_++), [this] {
    isWorkerThread = true;
    lowerThreadPriority();
    work();
  });
}

Executor& WorkerPool::executor(DispatchQueuePriority priority) {
  switch (priority) {
    case DISPATCH_QUEUE_PRIORITY_HIGH:
      return *lanes_[0];
    case DISPATCH_QUEUE_PRIORITY_DEFAULT:
      return *lanes_[1];
    case DISPATCH_QUEUE_PRIORITY_LOW:
      return *lanes_[2];
    case DISPATCH_QUEUE_PRIORITY_BACKGROUND:
      return *lanes_[3];
  }
  return *lanes_[1];
}

void WorkerPool::execute(size_t lane, std::shared_ptr<Runnable> work) {
  WorkCount::shared().begin();
  {
    MutexLock lock(waitingWorkMutex_);
    waitingWork_[lane].push_back(std::move(work));
    waiting_.fetch_add(1, std::memory_order_relaxed);
  }
  if (!std::exchange(keepsNextWork, false)) work_.release();
}

void WorkerPool::work() {
  while (!stopped_ && spares_.mayGoOn()) {
    if (awaitWork() && !stopped_) runHighest();
  }
}

/// Sleeps until there is work. A worker that goes to sleep rings what is due meanwhile: no other
/// thread need wake for it. False when that gave this worker no work.
bool WorkerPool::awaitWork() {
  if (work_.tryAcquire()) return true;
  TimerService& timers = TimerService::shared();
  const int64_t deadline = timers.beginKeeping();
  if (deadline == TimerService::kNever) {
    work_.acquire();
    return true;
  }
  if (work_.acquireUntil(deadline)) {
    timers.endKeeping(deadline);
    return true;
  }
  keepsNextWork = true;
  timers.ringKept(deadline);
  return !std::exchange(keepsNextWork, false);
}

/// Runs one piece of work, if there is one that is not withheld: there are as many calls as pieces.
void WorkerPool::runHighest() {
  auto work = takeHighest();
  if (!work) return;
  work->run();
  work.reset();  // destroying it may queue more, which the count must not miss
  WorkCount::shared().end();
}

std::shared_ptr<Runnable> WorkerPool::takeHighest() {
  MutexLock lock(waitingWorkMutex_);
  for (size_t lane = 0; lane < kLaneCount; ++lane) {
    if (waitingWork_[lane].empty() || !mayBegin(lane)) continue;
    waiting_.fetch_sub(1, std::memory_order_relaxed);
    auto work = std::move(waitingWork_[lane].front());
    waitingWork_[lane].pop_front();
    return work;
  }
  ++withheld_;
  return nullptr;
}

bool WorkerPool::mayBegin(size_t lane) const {
  return lane < kBackgroundLane || spares_.waiting() < kMostWaitingForBackground;
}

void WorkerPool::endWait() {
  spares_.endWait();
  MutexLock lock(waitingWorkMutex_);
  if (!mayBegin(kBackgroundLane)) return;
  for (; withheld_ > 0; --withheld_) work_.release();
}

void WorkerPool::stop() {
  stopped_ = true;
  WorkCount::shared().giveUp();
  spares_.stop();
  for (int i = workers_.size(); i > 0; --i) work_.release();
  workers_.waitAtExit();
}

}  // namespace zaffo
