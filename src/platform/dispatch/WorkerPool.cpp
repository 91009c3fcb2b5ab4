#include "platform/dispatch/WorkerPool.h"

#include <algorithm>
#include <string>
#include <utility>

#include "platform/FatalError.h"
#include "platform/ThreadPriority.h"
#include "platform/dispatch/WorkCount.h"

namespace zaffo {

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

WorkerPool::WorkerPool() {
  for (size_t i = 0; i < kLaneCount; ++i) lanes_[i] = std::make_unique<Lane>(*this, i);
  for (unsigned i = 0; i < workerCount(); ++i) {
    const bool started = workers_.start("zaffo-work-" + std::to_string(i), [this] {
      lowerThreadPriority();
      work();
    });
    if (!started && i == 0) fatalError("No thread could be started for the dispatch queues.");
  }
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
  work_.release();
}

void WorkerPool::work() {
  for (work_.acquire(); !stopped_; work_.acquire()) runHighest();
}

/// Runs one piece of work. There are as many calls as pieces, so each call finds one.
void WorkerPool::runHighest() {
  auto work = takeHighest();
  work->run();
  work.reset();  // destroying it may queue more, which the count must not miss
  WorkCount::shared().end();
}

std::shared_ptr<Runnable> WorkerPool::takeHighest() {
  MutexLock lock(waitingWorkMutex_);
  waiting_.fetch_sub(1, std::memory_order_relaxed);
  const auto lane = std::find_if(waitingWork_.begin(), waitingWork_.end(),
                                 [](const auto& waiting) { return !waiting.empty(); });
  auto work = std::move(lane->front());
  lane->pop_front();
  return work;
}

void WorkerPool::stop() {
  stopped_ = true;
  WorkCount::shared().giveUp();
  for (int i = workers_.size(); i > 0; --i) work_.release();
  workers_.waitAtExit();
}

}  // namespace zaffo
