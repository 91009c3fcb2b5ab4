#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "doubles/MainLoopUntil.h"
#include "platform/TimeSource.h"
#include "platform/dispatch/DispatchTimer.h"
#include "platform/dispatch/WorkerPool.h"

namespace zaffo {
namespace {

constexpr int64_t kMillisecond = 1'000'000;
constexpr int64_t kSecond = 1'000'000'000;

TEST(DispatchTimerInRealTime, FiresNeverBeforeItsDeadline) {
  const int64_t start = TimeSource::now();
  int64_t ranAt = 0;
  const auto timer = dispatch_timer_after(20 * kMillisecond, dispatch_get_main_queue(),
                                          [&] { ranAt = TimeSource::now(); });
  ASSERT_TRUE(runMainLoopUntil([&] { return ranAt != 0; }, 10 * kSecond));
  EXPECT_GE(ranAt, start + 20 * kMillisecond);
}

TEST(DispatchTimerInRealTime, AnEarlierTimerOvertakesTheArmedOne) {
  const auto late = dispatch_timer_after(60 * kSecond, dispatch_get_main_queue(), [] { FAIL(); });
  bool ran = false;
  const auto early =
      dispatch_timer_after(5 * kMillisecond, dispatch_get_main_queue(), [&] { ran = true; });
  EXPECT_TRUE(runMainLoopUntil([&] { return ran; }, 10 * kSecond));
  late->cancel();
}

TEST(DispatchTimerInRealTime, AnEndlessDelayHoldsUpNoOtherTimer) {
  const auto endless = dispatch_timer_after(std::numeric_limits<int64_t>::max(),
                                            dispatch_get_main_queue(), [] { FAIL(); });
  bool ran = false;
  const auto timer =
      dispatch_timer_after(kMillisecond, dispatch_get_main_queue(), [&] { ran = true; });
  EXPECT_TRUE(runMainLoopUntil([&] { return ran; }, 10 * kSecond));
  endless->cancel();
}

TEST(DispatchTimerInRealTime, StaysOnItsGrid) {
  const int64_t start = TimeSource::now();
  constexpr int64_t kPeriod = 2 * kMillisecond;
  int runs = 0;
  const auto timer = dispatch_timer_every(kPeriod, dispatch_get_main_queue(), [&] { ++runs; });
  ASSERT_TRUE(runMainLoopUntil([&] { return runs == 50; }, 10 * kSecond));
  timer->cancel();
  // Merging may only make it later than 50 periods, and a drift-free timer is never ahead of them.
  EXPECT_GE(TimeSource::now() - start, 50 * kPeriod);
}

TEST(DispatchTimerInRealTime, FiresWhileEveryWorkerIsBusy) {
  const unsigned workers = WorkerPool::workerCount();
  std::latch release(1);
  for (unsigned i = 0; i < workers; ++i) {
    dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH),
                   [&] { release.wait(); });
  }
  bool ran = false;
  const auto timer =
      dispatch_timer_after(kMillisecond, dispatch_get_main_queue(), [&] { ran = true; });
  EXPECT_TRUE(runMainLoopUntil([&] { return ran; }, 10 * kSecond));
  release.count_down();
  dispatch_wait_until_idle();
}

TEST(DispatchTimerInRealTime, SurvivesThreadsThatMakeAndCancelTimersAtRandom) {
  const unsigned seed = std::random_device{}();
  RecordProperty("seed", std::to_string(seed));
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::atomic<int> runsAfterCancel{0}, runs{0};
  std::vector<std::thread> threads;
  for (unsigned thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      std::minstd_rand random(seed + thread);
      const auto queue = dispatch_queue_create("stress");
      for (int i = 0; i < 300; ++i) {
        const auto cancelled = std::make_shared<bool>(false);  // of the queue
        const auto delay = static_cast<int64_t>(random() % 500'000);
        const auto timer = dispatch_timer_every(delay, queue, [&, cancelled] {
          ++runs;
          if (*cancelled) ++runsAfterCancel;
        });
        const auto stop = [timer, cancelled] {
          timer->cancel();
          *cancelled = true;
        };
        if (random() % 2) {
          queue->async(stop);
        } else {
          dispatch_timer_after(static_cast<int64_t>(random() % 1'000'000), queue, stop).reset();
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  bool settled = false;
  dispatch_timer_after(5 * kMillisecond, dispatch_get_main_queue(), [&] {
    settled = true;
  }).reset();
  ASSERT_TRUE(runMainLoopUntil([&] { return settled; }, 10 * kSecond));
  dispatch_wait_until_idle();
  EXPECT_GT(runs, 0);
  EXPECT_EQ(runsAfterCancel, 0);
}

}  // namespace
}  // namespace zaffo
