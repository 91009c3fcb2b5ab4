// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/SerialQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "doubles/BusyPool.h"
#include "doubles/ProcessCounts.h"
#include "platform/dispatch/DispatchQueue.h"

namespace zaffo {
namespace {

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

}  // namespace
}  // namespace zaffo
