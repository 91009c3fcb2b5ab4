// SPDX-License-Identifier: Apache-2.0
#include "pool/ZFMediaQueue.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <type_traits>
#include <vector>

namespace zaffo {

/// Looks at the mark that only the queue's owner knows.
class ZFMediaQueueMarkTest : public testing::Test {
 protected:
  static void* mark() { return &ZFMediaQueue::sharedInstance().kQueueKey_; }
  static std::int64_t markedWith() { return ZFMediaQueue::sharedInstance().kQueueKey_; }
};

namespace {

// First of all tests in this program, so that the threads race for the first use.
TEST(ZFMediaQueue, IsTheSameForThreadsThatRaceForTheFirstUse) {
  std::promise<void> start;
  const auto started = start.get_future().share();
  std::vector<DispatchQueuePtr> queues(8);
  std::vector<std::thread> threads;
  for (auto& queue : queues) {
    threads.emplace_back([&queue, started] {
      started.wait();
      queue = ZFMediaQueue::queue();
    });
  }
  start.set_value();
  for (auto& thread : threads) thread.join();
  ASSERT_NE(queues.front(), nullptr);
  for (const auto& queue : queues) EXPECT_EQ(queue, queues.front());
}

TEST(ZFMediaQueue, HasItsLabel) {
  EXPECT_EQ(ZFMediaQueue::queue()->label(), "com.zaffoapp.media");
}

TEST(ZFMediaQueue, RunsBlocksOneAtATimeInOrder) {
  std::vector<int> order;
  std::promise<void> done;
  for (int i = 0; i < 100; ++i) {
    dispatch_async(ZFMediaQueue::queue(), [&order, i] { order.push_back(i); });
  }
  dispatch_async(ZFMediaQueue::queue(), [&done] { done.set_value(); });
  done.get_future().wait();
  ASSERT_EQ(order.size(), 100u);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(ZFMediaQueue, AcceptsItsAssertionAnywhere) {
  ZFMediaQueue::assertOnQueue();
  std::promise<bool> onQueue;
  dispatch_async(ZFMediaQueue::queue(), [&onQueue] {
    ZFMediaQueue::assertOnQueue();
    onQueue.set_value(ZFMediaQueue::queue()->isCurrent());
  });
  EXPECT_TRUE(onQueue.get_future().get());
}

TEST_F(ZFMediaQueueMarkTest, BlocksOfTheQueueFindItsMarkAndOthersDoNot) {
  EXPECT_EQ(markedWith(), 1);
  EXPECT_EQ(ZFMediaQueue::queue()->specific(mark()), mark());
  EXPECT_EQ(dispatch_get_specific(mark()), nullptr);
  std::promise<void*> found;
  dispatch_async(ZFMediaQueue::queue(),
                 [&found] { found.set_value(dispatch_get_specific(mark())); });
  EXPECT_EQ(found.get_future().get(), mark());
}

TEST(ZFMediaQueue, CannotBeCreated) {
  EXPECT_FALSE(std::is_default_constructible_v<ZFMediaQueue>);
}

}  // namespace
}  // namespace zaffo
