// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/OutsideWait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <latch>
#include <thread>
#include <utility>
#include <vector>

#include "doubles/MainLoopUntil.h"
#include "doubles/ProcessCounts.h"
#include "platform/dispatch/MediaQueues.h"
#include "platform/dispatch/StorageQueue.h"
#include "platform/dispatch/WorkerPool.h"

namespace zaffo {
namespace {

constexpr int64_t kTenSeconds = 10'000'000'000;

int workers() {
  return static_cast<int>(WorkerPool::workerCount());
}

/// Blocks that wait for the outside world until it answers, once each or one wait within another.
class StalledBlocks {
 public:
  ~StalledBlocks() { answer(); }

  void addTo(const DispatchQueuePtr& queue, int depth = 1) {
    queue->async([this, depth] { wait(depth); });
  }
  void addSerial(int count) {
    for (int i = 0; i < count; ++i) addTo(dispatch_queue_create("stalled"));
  }
  void addGlobal(DispatchQueuePriority priority, int count) {
    for (int i = 0; i < count; ++i) addTo(dispatch_get_global_queue(priority));
  }
  [[nodiscard]] int begun() const { return begun_; }
  [[nodiscard]] bool waitUntilBegun(int count) const {
    return runMainLoopUntil([this, count] { return begun_ == count; }, kTenSeconds);
  }
  void answer() {
    if (!std::exchange(answered_, true)) answer_.count_down();
    dispatch_wait_until_idle();
  }

 private:
  void wait(int depth) {
    const OutsideWait outside;
    if (depth > 1) return wait(depth - 1);
    ++begun_;
    answer_.wait();
  }

  std::atomic<int> begun_{0};
  std::latch answer_{1};
  bool answered_ = false;
};

/// Whether a block that is put on `queue` now runs before ten seconds are over.
bool runs(const DispatchQueuePtr& queue) {
  const auto ran = std::make_shared<std::atomic<bool>>(false);
  queue->async([ran] { *ran = true; });
  return runMainLoopUntil([ran] { return ran->load(); }, kTenSeconds);
}

TEST(OutsideWait, WorkersThatWaitLeaveTheirPlacesToOthers) {
  StalledBlocks stalled;
  const int count = workers() + 6;
  stalled.addSerial(count);
  ASSERT_TRUE(stalled.waitUntilBegun(count));
  EXPECT_TRUE(runs(dispatch_queue_create("other")));
  EXPECT_TRUE(runs(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH)));
  EXPECT_TRUE(runs(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_BACKGROUND)));
}

TEST(OutsideWait, PicturesThatWaitLeaveTheirTurnsToOthers) {
  for (const auto load : {PictureLoad::Light, PictureLoad::Heavy}) {
    const auto pictureQueue = [load] {
      const auto queue = makePictureQueue("pictures");
      setPictureLoad(*queue, load);
      return queue;
    };
    StalledBlocks stalled;
    const int count = workers() + 6;
    for (int i = 0; i < count; ++i) stalled.addTo(pictureQueue());
    ASSERT_TRUE(stalled.waitUntilBegun(count));
    EXPECT_TRUE(runs(pictureQueue()));
  }
}

TEST(OutsideWait, OneWithinAnotherTakesNoSecondPlace) {
  StalledBlocks stalled;
  const auto spares = [] { return threadCount(); };
  stalled.addTo(dispatch_queue_create("stalled"), 5);
  ASSERT_TRUE(stalled.waitUntilBegun(1));
  const size_t before = spares();
  stalled.addTo(dispatch_queue_create("stalled"), 5);
  ASSERT_TRUE(stalled.waitUntilBegun(2));
  EXPECT_LE(spares(), before + 1);
}

TEST(OutsideWait, WhenItIsOverNoMoreBlocksRunAtOnceThanThereAreWorkers) {
  StalledBlocks stalled;
  const int count = workers() + 6;
  stalled.addSerial(count);
  ASSERT_TRUE(stalled.waitUntilBegun(count));
  stalled.answer();
  std::atomic<int> running{0}, most{0};
  for (int i = 0; i < 200; ++i) {
    dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT), [&] {
      const int now = ++running;
      for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) {
      }
      std::this_thread::yield();
      --running;
    });
  }
  dispatch_wait_until_idle();
  EXPECT_LE(most, workers());
}

TEST(OutsideWait, HasABoundOfSpareWorkersAndAllWaitersComeToTheirTurn) {
  StalledBlocks stalled;
  EXPECT_TRUE(runs(dispatch_queue_create("first"))) << "which has the workers started";
  const size_t before = threadCount();
  const int bound = WorkerPool::kMostSpare + workers();
  stalled.addSerial(bound + 50);
  ASSERT_TRUE(stalled.waitUntilBegun(bound));
  EXPECT_LE(threadCount(), before + WorkerPool::kMostSpare);
  stalled.answer();
  EXPECT_EQ(stalled.begun(), bound + 50);
  EXPECT_TRUE(runs(dispatch_queue_create("other")));
}

TEST(OutsideWait, HoweverManyWaitInTheBackgroundOthersHaveWorkers) {
  StalledBlocks stalled;
  stalled.addGlobal(DISPATCH_QUEUE_PRIORITY_BACKGROUND, 200);
  ASSERT_TRUE(stalled.waitUntilBegun(WorkerPool::kMostWaitingForBackground));
  stalled.addSerial(10);
  ASSERT_TRUE(stalled.waitUntilBegun(WorkerPool::kMostWaitingForBackground + 10));
  EXPECT_TRUE(runs(dispatch_queue_create("other")));
  stalled.answer();
  EXPECT_EQ(stalled.begun(), 210) << "what was withheld is done";
}

TEST(OutsideWait, DoesNothingOnOtherThreads) {
  EXPECT_TRUE(runs(dispatch_queue_create("first"))) << "which has the workers started";
  const size_t before = threadCount();
  {
    const OutsideWait outside;
    EXPECT_EQ(threadCount(), before);
  }
  StalledBlocks stalled;
  stalled.addTo(makeStorageQueue("reader"));
  ASSERT_TRUE(stalled.waitUntilBegun(1));
  EXPECT_LE(threadCount(), before + 1) << "the storage queue's own";
}

}  // namespace
}  // namespace zaffo
