// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/BlockingThreads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <memory>

#include "doubles/MainLoopUntil.h"
#include "platform/dispatch/SerialQueue.h"
#include "platform/dispatch/StorageQueue.h"

namespace zaffo {
namespace {

constexpr int64_t kTenSeconds = 10'000'000'000;

TEST(BlockingThreads, GrowWithNeedAndShrinkWhenThereIsNone) {
  static auto* const threads = new BlockingThreads(std::chrono::milliseconds(5), 6);
  constexpr int kReaders = 6;
  std::latch allReading(kReaders + 1);
  for (int i = 0; i < kReaders; ++i) {
    std::make_shared<SerialQueue>("reader", *threads)->async([&] { allReading.arrive_and_wait(); });
  }
  EXPECT_EQ(threads->size(), kReaders);
  allReading.count_down();
  dispatch_wait_until_idle();
  EXPECT_TRUE(runMainLoopUntil([] { return threads->size() == 0; }, kTenSeconds));

  bool ran = false;
  std::make_shared<SerialQueue>("later", *threads)->async([&] { ran = true; });
  dispatch_wait_until_idle();
  EXPECT_TRUE(ran) << "the set grows again";
}

TEST(BlockingThreads, BeyondTheirBoundWorkWaitsForAThreadAndNoneIsLeftOut) {
  constexpr int kBound = 3, kBlocks = 50;
  static auto* const threads = new BlockingThreads(std::chrono::milliseconds(5), kBound);
  std::latch answer(1);
  std::atomic<int> begun{0};
  for (int i = 0; i < kBlocks; ++i) {
    std::make_shared<SerialQueue>("reader", *threads)->async([&] {
      ++begun;
      answer.wait();
    });
  }
  EXPECT_TRUE(runMainLoopUntil([&] { return begun == kBound; }, kTenSeconds));
  EXPECT_EQ(threads->size(), kBound);
  answer.count_down();
  dispatch_wait_until_idle();
  EXPECT_EQ(begun, kBlocks);
  EXPECT_TRUE(runMainLoopUntil([] { return threads->size() == 0; }, kTenSeconds));
}

TEST(BlockingThreads, FilesThatStallLeaveThreadsForDevices) {
  std::latch answer(1);
  std::atomic<int> stalled{0};
  for (int i = 0; i < 2 * BlockingThreads::kMostThreads; ++i) {
    makeStorageQueue("file")->async([&] {
      ++stalled;
      answer.wait();
    });
  }
  EXPECT_TRUE(
      runMainLoopUntil([&] { return stalled == BlockingThreads::kMostThreads; }, kTenSeconds));
  std::atomic<bool> opened{false};
  dispatch_queue_create_blocking("device")->async([&] { opened = true; });
  EXPECT_TRUE(runMainLoopUntil([&] { return opened.load(); }, kTenSeconds));
  EXPECT_EQ(BlockingThreads::storage().size(), BlockingThreads::kMostThreads);
  answer.count_down();
  dispatch_wait_until_idle();
}

}  // namespace
}  // namespace zaffo
