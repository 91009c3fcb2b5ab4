// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
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
  std::atomic<bool> ran = false, ranElsewhere = false;
  const auto timer =
      dispatch_timer_after(kMillisecond, dispatch_get_main_queue(), [&] { ran = true; });
  const auto elsewhere = dispatch_timer_after(
      kMillisecond, dispatch_queue_create_blocking("patient"), [&] { ranElsewhere = true; });
  EXPECT_TRUE(runMainLoopUntil([&] { return ran && ranElsewhere; }, 10 * kSecond));
  release.count_down();
  dispatch_wait_until_idle();
}

/// How often the thread that rings timers went to sleep; each time something had woken it.
long sleepsOfTimerThread() {
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream status(task.path() / "status");
    std::string line;
    bool isTimers = false;
    while (std::getline(status, line)) {
      if (line == "Name:\tzaffo-timers") isTimers = true;
      if (isTimers && line.starts_with("voluntary_ctxt_switches:")) {
        return std::strtol(line.c_str() + line.find('\t'), nullptr, 10);
      }
    }
  }
  return 0;
}

/// What the thread was woken for by now it has seen to.
void settleTimers() {
  std::atomic<bool> rang = false;
  const auto timer = dispatch_timer_after(kMillisecond, dispatch_queue_create_blocking("settles"),
                                          [&] { rang = true; });
  ASSERT_TRUE(runMainLoopUntil([&] { return rang.load(); }, 10 * kSecond));
}

TEST(DispatchTimerInRealTime, SettingEarlierTimersWakesNobody) {
  settleTimers();
  const long before = sleepsOfTimerThread();
  const auto queue = dispatch_queue_create("never");
  constexpr int kTimers = 200;
  std::vector<DispatchTimerPtr> timers;
  for (int i = 0; i < kTimers; ++i) {
    timers.push_back(dispatch_timer_after((3600 - i) * kSecond, queue, [] { FAIL(); }));
  }
  settleTimers();
  EXPECT_LT(sleepsOfTimerThread() - before, kTimers / 10);
  for (const auto& timer : timers) timer->cancel();
}

TEST(DispatchTimerInRealTime, ATimerOfTheMainQueueWakesTheMainThreadAlone) {
  settleTimers();
  const long before = sleepsOfTimerThread();
  int runs = 0;
  const auto timer = dispatch_timer_every(kMillisecond, dispatch_get_main_queue(), [&] { ++runs; });
  ASSERT_TRUE(runMainLoopUntil([&] { return runs == 50; }, 10 * kSecond));
  timer->cancel();
  EXPECT_LT(sleepsOfTimerThread() - before, 5);
}

TEST(DispatchTimerInRealTime, AWorkerThatSleepsRingsWhatIsDueItself) {
  settleTimers();
  const long before = sleepsOfTimerThread();
  const auto queue = dispatch_queue_create("paced");
  std::atomic<int> runs = 0;
  constexpr int kRuns = 50;
  std::function<void()> step = [&] {
    if (++runs < kRuns) dispatch_timer_after(2 * kMillisecond, queue, step).reset();
  };
  queue->async(step);
  ASSERT_TRUE(runMainLoopUntil([&] { return runs == kRuns; }, 10 * kSecond));
  dispatch_wait_until_idle();
  EXPECT_LT(sleepsOfTimerThread() - before, kRuns / 2);
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
