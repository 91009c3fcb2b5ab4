// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/DispatchQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <latch>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "doubles/BusyPool.h"
#include "doubles/MainLoopUntil.h"
#include "doubles/ProcessCounts.h"
#include "platform/dispatch/MainLoop.h"
#include "platform/foundation/NSThread.h"

namespace zaffo {
namespace {

constexpr int64_t kTenSeconds = 10'000'000'000;

TEST(GlobalQueue, RunsAsManyBlocksAtOnceAsThereAreCoresAndOneMore) {
  const unsigned workers = std::max(1U, std::thread::hardware_concurrency()) + 1;
  std::latch together(workers);
  std::mutex idsMutex;
  std::set<std::thread::id> ids;
  for (unsigned i = 0; i < workers; ++i) {
    dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT), [&] {
      together.arrive_and_wait();
      const std::lock_guard lock(idsMutex);
      ids.insert(std::this_thread::get_id());
    });
  }
  dispatch_wait_until_idle();
  EXPECT_EQ(ids.size(), workers);
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
