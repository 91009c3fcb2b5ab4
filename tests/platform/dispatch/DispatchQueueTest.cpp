#include "platform/dispatch/DispatchQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <iterator>
#include <latch>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "doubles/MainLoopUntil.h"
#include "platform/dispatch/MainLoop.h"
#include "platform/foundation/NSThread.h"

namespace zaffo {
namespace {

constexpr int64_t kTenSeconds = 10'000'000'000;

size_t threadCount() {
  namespace fs = std::filesystem;
  return static_cast<size_t>(
      std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator()));
}

/// Keeps every worker of the shared pool busy until released.
class BusyPool {
 public:
  BusyPool() : workers_(std::max(1U, std::thread::hardware_concurrency())), occupied_(workers_) {
    for (unsigned i = 0; i < workers_; ++i) {
      dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH), [this] {
        occupied_.count_down();
        released_.wait();
      });
    }
    occupied_.wait();
  }
  ~BusyPool() {
    release();
    dispatch_wait_until_idle();
  }
  void release() {
    if (!std::exchange(isReleased_, true)) released_.count_down();
  }
  [[nodiscard]] unsigned workers() const { return workers_; }

 private:
  const unsigned workers_;
  std::latch occupied_;
  std::latch released_{1};
  bool isReleased_ = false;
};

TEST(SerialQueue, RunsBlocksOneAtATimeInTheOrderOfSubmission) {
  const auto queue = dispatch_queue_create("order");
  std::vector<int> order;
  std::atomic<int> inside{0};
  bool overlapped = false;
  for (int i = 0; i < 1000; ++i) {
    queue->async([&, i] {
      overlapped |= ++inside != 1;
      order.push_back(i);
      --inside;
    });
  }
  dispatch_wait_until_idle();
  std::vector<int> expected(1000);
  for (int i = 0; i < 1000; ++i) expected[static_cast<size_t>(i)] = i;
  EXPECT_EQ(order, expected);
  EXPECT_FALSE(overlapped);
}

TEST(SerialQueue, NeverRunsABlockInsideAsync) {
  const auto queue = dispatch_queue_create("later");
  bool innerRan = false, innerRanInside = true;
  queue->async([&] {
    queue->async([&] { innerRan = true; });
    innerRanInside = innerRan;
  });
  dispatch_wait_until_idle();
  EXPECT_FALSE(innerRanInside);
  EXPECT_TRUE(innerRan);
}

TEST(SerialQueue, HasALabel) {
  EXPECT_EQ(dispatch_queue_create("a label")->label(), "a label");
}

TEST(SerialQueue, KnowsWhetherTheCallerRunsOnIt) {
  const auto queue = dispatch_queue_create("mine");
  const auto other = dispatch_queue_create("other");
  bool onQueue = false, onOther = true;
  EXPECT_FALSE(queue->isCurrent());
  queue->async([&] {
    onQueue = queue->isCurrent();
    onOther = other->isCurrent();
  });
  dispatch_wait_until_idle();
  EXPECT_TRUE(onQueue);
  EXPECT_FALSE(onOther);
}

TEST(SerialQueue, AnswersItsSpecificsToItsBlocksOnly) {
  const auto queue = dispatch_queue_create("specific");
  const auto other = dispatch_queue_create("other");
  int key = 0;
  dispatch_queue_set_specific(queue, &key, &key);
  void* here = nullptr;
  void* there = &key;
  queue->async([&] { here = dispatch_get_specific(&key); });
  other->async([&] { there = dispatch_get_specific(&key); });
  dispatch_wait_until_idle();
  EXPECT_EQ(here, &key);
  EXPECT_EQ(there, nullptr);
  EXPECT_EQ(dispatch_get_specific(&key), nullptr) << "outside of blocks there is no queue";
  EXPECT_EQ(queue->specific(&key), &key);
}

TEST(SerialQueue, ReplacesAndRemovesASpecific) {
  const auto queue = dispatch_queue_create("specific");
  int key = 0, first = 1, second = 2;
  queue->setSpecific(&key, &first);
  queue->setSpecific(&key, &second);
  EXPECT_EQ(queue->specific(&key), &second);
  queue->setSpecific(&key, nullptr);
  EXPECT_EQ(queue->specific(&key), nullptr);
}

TEST(SerialQueue, LivesUntilItsQueuedBlocksHaveRun) {
  BusyPool busy;
  auto queue = dispatch_queue_create("short-lived");
  const std::weak_ptr<DispatchQueue> weakQueue = queue;
  std::atomic<int> runs{0};
  for (int i = 0; i < 3; ++i) queue->async([&] { ++runs; });
  queue.reset();
  EXPECT_FALSE(weakQueue.expired());
  busy.release();
  dispatch_wait_until_idle();
  EXPECT_EQ(runs, 3);
  EXPECT_TRUE(weakQueue.expired());
}

TEST(SerialQueue, TakesBlocksFromTheLastBlockOfADyingQueue) {
  auto queue = dispatch_queue_create("dying");
  const std::weak_ptr<DispatchQueue> weakQueue = queue;
  std::latch letGo(1);
  std::atomic<bool> ranLast{false};
  DispatchQueue* const raw = queue.get();
  queue->async([&, raw] {
    letGo.wait();
    raw->async([&] { ranLast = true; });
  });
  queue.reset();
  letGo.count_down();
  dispatch_wait_until_idle();
  EXPECT_TRUE(ranLast);
  EXPECT_TRUE(weakQueue.expired());
}

TEST(SerialQueue, MayBeDestroyedByItsOwnBlock) {
  auto queue = std::make_shared<DispatchQueuePtr>(dispatch_queue_create("suicidal"));
  const std::weak_ptr<DispatchQueue> weakQueue = *queue;
  DispatchQueue* const raw = queue->get();
  raw->async([queue = std::move(queue)] { queue->reset(); });
  dispatch_wait_until_idle();
  EXPECT_TRUE(weakQueue.expired());
}

TEST(SerialQueue, LetsGoOfABlockBeforeTheNextOneRuns) {
  const auto queue = dispatch_queue_create("captures");
  auto captured = std::make_shared<int>(0);
  const std::weak_ptr<int> weakCaptured = captured;
  bool goneInSecond = false;
  queue->async([held = std::move(captured)] { EXPECT_EQ(*held, 0); });
  queue->async([&] { goneInSecond = weakCaptured.expired(); });
  dispatch_wait_until_idle();
  EXPECT_TRUE(goneInSecond);
}

TEST(SerialQueue, IgnoresAnEmptyBlock) {
  const auto queue = dispatch_queue_create("empty");
  queue->async(nullptr);
  bool ran = false;
  queue->async([&] { ran = true; });
  dispatch_wait_until_idle();
  EXPECT_TRUE(ran);
}

TEST(SerialQueue, KeepsEachThreadsOrderWhenManySubmit) {
  constexpr int kThreads = 4, kBlocks = 2000;
  const auto queue = dispatch_queue_create("many");
  std::vector<std::pair<int, int>> runs;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < kBlocks; ++i)
        queue->async([&, thread, i] { runs.push_back({thread, i}); });
    });
  }
  for (auto& thread : threads) thread.join();
  dispatch_wait_until_idle();
  ASSERT_EQ(runs.size(), static_cast<size_t>(kThreads * kBlocks));
  std::vector<int> next(kThreads, 0);
  for (const auto& [thread, i] : runs) EXPECT_EQ(i, next[static_cast<size_t>(thread)]++);
}

TEST(SerialQueue, GivesWayToOthersSoThatNoneStarves) {
  // More busy queues than workers, each always with another block to run.
  BusyPool busy;
  std::atomic<bool> stop{false};
  std::vector<DispatchQueuePtr> hogs;
  std::function<void(DispatchQueue&)> hog = [&](DispatchQueue& queue) {
    if (!stop) queue.async([&] { hog(queue); });
  };
  for (unsigned i = 0; i < busy.workers(); ++i) {
    hogs.push_back(dispatch_queue_create("hog"));
    hogs.back()->async([&, queue = hogs.back().get()] { hog(*queue); });
  }
  const auto modest = dispatch_queue_create("modest");
  modest->async([&] { stop = true; });
  busy.release();
  dispatch_wait_until_idle();
  EXPECT_TRUE(stop);
}

TEST(SerialQueue, AHundredOfThemAddNoThread) {
  dispatch_queue_create("first")->async([] {});
  dispatch_wait_until_idle();
  const size_t before = threadCount();
  std::vector<DispatchQueuePtr> queues;
  std::atomic<int> runs{0};
  for (int i = 0; i < 100; ++i) {
    queues.push_back(dispatch_queue_create("one of many"));
    queues.back()->async([&] { ++runs; });
  }
  dispatch_wait_until_idle();
  EXPECT_EQ(runs, 100);
  EXPECT_EQ(threadCount(), before);
}

TEST(GlobalQueue, RunsAsManyBlocksAtOnceAsThereAreCores) {
  const unsigned cores = std::max(1U, std::thread::hardware_concurrency());
  std::latch together(cores);
  std::mutex idsMutex;
  std::set<std::thread::id> ids;
  for (unsigned i = 0; i < cores; ++i) {
    dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT), [&] {
      together.arrive_and_wait();
      const std::lock_guard lock(idsMutex);
      ids.insert(std::this_thread::get_id());
    });
  }
  dispatch_wait_until_idle();
  EXPECT_EQ(ids.size(), cores);
}

TEST(GlobalQueue, StartsAWaitingBlockOfHigherPriorityFirst) {
  std::mutex orderMutex;
  std::vector<long> order;
  {
    BusyPool busy;
    const long priorities[] = {DISPATCH_QUEUE_PRIORITY_BACKGROUND, DISPATCH_QUEUE_PRIORITY_LOW,
                               DISPATCH_QUEUE_PRIORITY_DEFAULT, DISPATCH_QUEUE_PRIORITY_HIGH};
    for (const long priority : priorities) {
      const auto& queue = dispatch_get_global_queue(static_cast<DispatchQueuePriority>(priority));
      // Enough of each that the second worker cannot get ahead by a whole priority.
      for (int i = 0; i < 50; ++i) {
        queue->async([&, priority] {
          const std::lock_guard lock(orderMutex);
          order.push_back(priority);
        });
      }
    }
    busy.release();
  }
  // Workers that took their blocks in order may still note them a place apart: look at the middles.
  ASSERT_EQ(order.size(), 200U);
  EXPECT_EQ(order[25], DISPATCH_QUEUE_PRIORITY_HIGH);
  EXPECT_EQ(order[75], DISPATCH_QUEUE_PRIORITY_DEFAULT);
  EXPECT_EQ(order[125], DISPATCH_QUEUE_PRIORITY_LOW);
  EXPECT_EQ(order[175], DISPATCH_QUEUE_PRIORITY_BACKGROUND);
}

TEST(GlobalQueue, IsOneQueueAPriority) {
  EXPECT_EQ(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH),
            dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH));
  EXPECT_NE(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH),
            dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_LOW));
  EXPECT_NE(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_LOW),
            dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_BACKGROUND));
}

TEST(GlobalQueue, PriorityValuesAreThePlatforms) {
  EXPECT_EQ(DISPATCH_QUEUE_PRIORITY_HIGH, 2);
  EXPECT_EQ(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0);
  EXPECT_EQ(DISPATCH_QUEUE_PRIORITY_LOW, -2);
  EXPECT_EQ(DISPATCH_QUEUE_PRIORITY_BACKGROUND, -32768);
}

TEST(GlobalQueue, KnowsWhetherTheCallerRunsOnIt) {
  const auto& high = dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH);
  const auto& low = dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_LOW);
  bool onHigh = false, onLow = true;
  high->async([&] {
    onHigh = high->isCurrent();
    onLow = low->isCurrent();
  });
  dispatch_wait_until_idle();
  EXPECT_TRUE(onHigh);
  EXPECT_FALSE(onLow);
}

TEST(BlockingQueue, GrowsWhileAllItsThreadsWait) {
  constexpr int kQueues = 12;
  std::latch allWaiting(kQueues);
  std::vector<DispatchQueuePtr> queues;
  for (int i = 0; i < kQueues; ++i) {
    queues.push_back(dispatch_queue_create_blocking("reader"));
    queues.back()->async([&] { allWaiting.arrive_and_wait(); });
  }
  dispatch_wait_until_idle();
  EXPECT_TRUE(allWaiting.try_wait());
}

TEST(BlockingQueue, LeavesTheSharedPoolFree) {
  std::latch done(1);
  const auto reader = dispatch_queue_create_blocking("reader");
  reader->async([&] { done.wait(); });
  std::atomic<bool> ran{false};
  dispatch_queue_create("other")->async([&] { ran = true; });
  EXPECT_TRUE(runMainLoopUntil([&] { return ran.load(); }, kTenSeconds));
  done.count_down();
  dispatch_wait_until_idle();
}

TEST(BlockingQueue, UsesAFreeThreadAgain) {
  const auto queue = dispatch_queue_create_blocking("reader");
  queue->async([] {});
  dispatch_wait_until_idle();
  const size_t before = threadCount();
  std::vector<int> order;
  for (int i = 0; i < 100; ++i) queue->async([&, i] { order.push_back(i); });
  dispatch_wait_until_idle();
  EXPECT_EQ(order.size(), 100U);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  EXPECT_EQ(threadCount(), before);
}

TEST(DispatchWaitUntilIdle, WaitsForBlocksThatBlocksQueueElsewhere) {
  const auto first = dispatch_queue_create("first");
  const auto second = dispatch_queue_create_blocking("second");
  std::atomic<int> hops{0};
  std::function<void()> hop = [&] {
    if (++hops < 200) (hops % 2 ? second : first)->async(hop);
  };
  first->async(hop);
  dispatch_wait_until_idle();
  EXPECT_EQ(hops, 200);
}

TEST(DispatchWaitUntilIdleDeathTest, RefusesToWaitForItself) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        dispatch_queue_create("self")->async([] { dispatch_wait_until_idle(); });
        MainLoop::run();
      },
      "from a block on a worker");
}

TEST(MainQueue, RunsItsBlocksOnTheMainThread) {
  bool onMain = false, current = false;
  dispatch_queue_create("worker")->async([&] {
    dispatch_async(dispatch_get_main_queue(), [&] {
      onMain = NSThread::isMainThread();
      current = dispatch_get_main_queue()->isCurrent();
      MainLoop::quit();
    });
  });
  MainLoop::run();
  EXPECT_TRUE(onMain);
  EXPECT_TRUE(current);
  EXPECT_FALSE(dispatch_get_main_queue()->isCurrent()) << "no block of it is running";
}

}  // namespace
}  // namespace zaffo
