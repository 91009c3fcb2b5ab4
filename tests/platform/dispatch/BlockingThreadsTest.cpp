#include "platform/dispatch/BlockingThreads.h"

#include <gtest/gtest.h>

#include <latch>
#include <memory>

#include "doubles/MainLoopUntil.h"
#include "platform/dispatch/SerialQueue.h"

namespace zaffo {
namespace {

constexpr int64_t kTenSeconds = 10'000'000'000;

TEST(BlockingThreads, GrowWithNeedAndShrinkWhenThereIsNone) {
  static auto* const threads = new BlockingThreads(std::chrono::milliseconds(5));
  constexpr int kReaders = 6;
  std::latch allReading(kReaders);
  for (int i = 0; i < kReaders; ++i) {
    std::make_shared<SerialQueue>("reader", *threads)->async([&] { allReading.arrive_and_wait(); });
  }
  EXPECT_EQ(threads->size(), kReaders);
  dispatch_wait_until_idle();
  EXPECT_TRUE(runMainLoopUntil([] { return threads->size() == 0; }, kTenSeconds));

  bool ran = false;
  std::make_shared<SerialQueue>("later", *threads)->async([&] { ran = true; });
  dispatch_wait_until_idle();
  EXPECT_TRUE(ran) << "the set grows again";
}

}  // namespace
}  // namespace zaffo
