// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/DispatchTimer.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "doubles/HeldQueue.h"
#include "doubles/ManualTime.h"

namespace zaffo {
namespace {

constexpr int64_t kMillisecond = kNanosecondsPerMillisecond;
constexpr int64_t kSecond = kNanosecondsPerSecond;

class DispatchTimerTest : public testing::Test {
 protected:
  int64_t elapsed() const { return time_.elapsed(); }

  ManualTime time_;
  const DispatchQueuePtr& main_ = dispatch_get_main_queue();
};

TEST_F(DispatchTimerTest, RunsOnceAfterTheDelayAndNotBefore) {
  std::vector<int64_t> runs;
  const auto timer =
      dispatch_timer_after(100 * kMillisecond, main_, [&] { runs.push_back(elapsed()); });
  time_.advance(100 * kMillisecond - 1);
  EXPECT_TRUE(runs.empty());
  time_.advance(10 * kSecond);
  EXPECT_EQ(runs, std::vector<int64_t>{100 * kMillisecond});
}

TEST_F(DispatchTimerTest, RunsAtADeadline) {
  int64_t ranAt = 0;
  const auto timer = dispatch_timer_at(time_.start() + 7, main_, [&] { ranAt = elapsed(); });
  time_.advance(kSecond);
  EXPECT_EQ(ranAt, 7);
}

TEST_F(DispatchTimerTest, RunsAtOnceButNeverInsideTheCallWhenTheDelayIsNotPositive) {
  int runs = 0;
  const auto negative = dispatch_timer_after(-kSecond, main_, [&] { ++runs; });
  const auto zero = dispatch_timer_after(0, main_, [&] { ++runs; });
  const auto past = dispatch_timer_at(1, main_, [&] { ++runs; });
  EXPECT_EQ(runs, 0);
  time_.settle();
  EXPECT_EQ(runs, 3);
  EXPECT_EQ(elapsed(), 0);
}

TEST_F(DispatchTimerTest, RepeatsOnItsGridWithoutDrift) {
  std::vector<int64_t> runs;
  const auto timer =
      dispatch_timer_every(33 * kMillisecond, main_, [&] { runs.push_back(elapsed()); });
  for (int i = 0; i < 10; ++i) time_.advance(20 * kMillisecond);
  EXPECT_EQ(runs,
            (std::vector<int64_t>{33 * kMillisecond, 66 * kMillisecond, 99 * kMillisecond,
                                  132 * kMillisecond, 165 * kMillisecond, 198 * kMillisecond}));
  timer->cancel();
}

TEST_F(DispatchTimerTest, MergesRunsThatABusyQueueCouldNotTake) {
  const auto queue = std::make_shared<HeldQueue>();
  int runs = 0;
  const auto timer = dispatch_timer_every(kMillisecond, queue, [&] { ++runs; });
  time_.advance(5 * kMillisecond);
  EXPECT_EQ(queue->waiting(), 1U);
  queue->runAll();
  EXPECT_EQ(runs, 1);
  time_.advance(kMillisecond);
  queue->runAll();
  EXPECT_EQ(runs, 2);
  timer->cancel();
}

TEST_F(DispatchTimerTest, RunsOnAWorkerQueueAtItsDeadline) {
  const auto queue = dispatch_queue_create("worker");
  std::vector<int64_t> runs;
  const auto timer = dispatch_timer_every(kSecond, queue, [&] {
    EXPECT_TRUE(queue->isCurrent());
    runs.push_back(elapsed());
  });
  time_.advance(3 * kSecond);
  EXPECT_EQ(runs, (std::vector<int64_t>{kSecond, 2 * kSecond, 3 * kSecond}));
  timer->cancel();
}

TEST_F(DispatchTimerTest, FiresByDeadlineAndThenInTheOrderOfCreation) {
  std::string order;
  const auto late = dispatch_timer_after(20, main_, [&] { order += 'd'; });
  const auto first = dispatch_timer_after(10, main_, [&] { order += 'a'; });
  const auto second = dispatch_timer_after(10, main_, [&] { order += 'b'; });
  const auto third = dispatch_timer_after(10, main_, [&] { order += 'c'; });
  time_.advance(30);
  EXPECT_EQ(order, "abcd");
}

TEST_F(DispatchTimerTest, DoesNotRunAfterCancelEvenWhenARunIsQueued) {
  const auto queue = std::make_shared<HeldQueue>();
  int runs = 0;
  const auto once = dispatch_timer_after(1, queue, [&] { ++runs; });
  const auto repeating = dispatch_timer_every(kMillisecond, queue, [&] { ++runs; });
  time_.advance(kMillisecond);
  ASSERT_EQ(queue->waiting(), 2U);
  once->cancel();
  repeating->cancel();
  queue->runAll();
  time_.advance(kSecond);
  queue->runAll();
  EXPECT_EQ(runs, 0);
}

TEST_F(DispatchTimerTest, MayBeCancelledByItsOwnBlock) {
  int runs = 0;
  DispatchTimerPtr timer;
  auto captured = std::make_shared<int>(5);
  const std::weak_ptr<int> weakCaptured = captured;
  timer = dispatch_timer_every(kMillisecond, main_, [&, held = std::move(captured)] {
    timer->cancel();
    runs += *held;  // still there: a block is not pulled away from under itself
  });
  time_.advance(kSecond);
  EXPECT_EQ(runs, 5);
  EXPECT_TRUE(weakCaptured.expired());
}

TEST_F(DispatchTimerTest, LetsGoOfItsBlockAndQueueOnCancel) {
  auto captured = std::make_shared<int>(0);
  const std::weak_ptr<int> weakCaptured = captured;
  auto queue = std::make_shared<HeldQueue>();
  const std::weak_ptr<HeldQueue> weakQueue = queue;
  const auto timer =
      dispatch_timer_after(kSecond, std::exchange(queue, nullptr), [held = std::move(captured)] {});
  EXPECT_FALSE(weakCaptured.expired());
  timer->cancel();
  EXPECT_TRUE(weakCaptured.expired());
  EXPECT_TRUE(weakQueue.expired());
  timer->cancel();
}

TEST_F(DispatchTimerTest, LetsGoOfItsBlockAfterItsOneRun) {
  auto captured = std::make_shared<int>(0);
  const std::weak_ptr<int> weakCaptured = captured;
  const auto timer = dispatch_timer_after(1, main_, [held = std::move(captured)] {});
  time_.advance(1);
  EXPECT_TRUE(weakCaptured.expired());
}

TEST_F(DispatchTimerTest, RunsWhenItsHandleIsDropped) {
  bool ran = false;
  dispatch_timer_after(1, main_, [&] { ran = true; }).reset();
  time_.advance(1);
  EXPECT_TRUE(ran);
}

TEST_F(DispatchTimerTest, MayBeScheduledFromATimersBlock) {
  std::vector<int64_t> runs;
  std::function<void()> next = [&] {
    runs.push_back(elapsed());
    if (runs.size() < 4) dispatch_timer_after(10, main_, next).reset();
  };
  next();
  time_.advance(25);
  EXPECT_EQ(runs, (std::vector<int64_t>{0, 10, 20}));
  time_.advance(100);
  EXPECT_EQ(runs.back(), 30);
}

TEST_F(DispatchTimerTest, TakesAnEndlessDelayAsForEver) {
  bool ran = false;
  const auto timer =
      dispatch_timer_after(std::numeric_limits<int64_t>::max(), main_, [&] { ran = true; });
  const auto repeating =
      dispatch_timer_every(std::numeric_limits<int64_t>::max(), main_, [&] { ran = true; });
  time_.advance(1'000'000 * kSecond);
  EXPECT_FALSE(ran);
  timer->cancel();
  repeating->cancel();
}

TEST_F(DispatchTimerTest, RepeatsNoFasterThanEveryMicrosecond) {
  int runs = 0;
  const auto timer = dispatch_timer_every(0, main_, [&] { ++runs; });
  time_.advance(5000);
  EXPECT_EQ(runs, 5);
  timer->cancel();
}

TEST_F(DispatchTimerTest, KeepsItsOrderWhenMostOfAThousandAreCancelled) {
  std::vector<int> order;
  std::vector<DispatchTimerPtr> timers;
  for (int i = 0; i < 1000; ++i) {
    timers.push_back(dispatch_timer_after(1000 - i, main_, [&order, i] { order.push_back(i); }));
  }
  std::vector<int> expected;
  for (int i = 999; i >= 0; --i) {
    if (i % 100 == 0) {
      expected.push_back(i);
    } else {
      timers[static_cast<size_t>(i)]->cancel();
    }
  }
  time_.advance(2000);
  EXPECT_EQ(order, expected);
}

/// A source whose alarm rings late: the test sets the time first and rings afterwards.
class LateTime final : public TimeSource {
 public:
  LateTime() { replace(this); }
  ~LateTime() override { replace(nullptr); }
  LateTime(const LateTime&) = delete;
  LateTime& operator=(const LateTime&) = delete;

  [[nodiscard]] int64_t nanoseconds() const override { return now; }
  void setAlarm(int64_t at, std::function<void()> ring) override {
    deadline = at;
    ring_ = std::move(ring);
  }
  void ringAt(int64_t time) {
    now = time;
    std::exchange(ring_, nullptr)();
  }

  int64_t now = 0;
  int64_t deadline = 0;

 private:
  std::function<void()> ring_;
};

TEST(DispatchTimerOnALateClock, KeepsToItsGridAndMergesThePeriodsItMissed) {
  LateTime time;
  const auto queue = std::make_shared<HeldQueue>();
  const auto timer = dispatch_timer_every(10'000, queue, [] {});
  EXPECT_EQ(time.deadline, 10'000);
  time.ringAt(13'000);
  EXPECT_EQ(time.deadline, 20'000) << "no drift";
  EXPECT_EQ(queue->waiting(), 1U);
  queue->runAll();
  time.ringAt(56'000);
  EXPECT_EQ(queue->waiting(), 1U) << "20, 30, 40 and 50 are one run";
  EXPECT_EQ(time.deadline, 60'000);
  timer->cancel();
}

TEST(DispatchTimerAcrossSources, NeverFiresOnceItsTimeSourceIsReplaced) {
  auto captured = std::make_shared<int>(0);
  const std::weak_ptr<int> weakCaptured = captured;
  int strayRuns = 0;
  {
    const ManualTime time;
    dispatch_timer_every(kMillisecond, dispatch_get_main_queue(), [&, held = std::move(captured)] {
      ++strayRuns;
    }).reset();
  }
  ManualTime time;
  int runs = 0;
  const auto timer = dispatch_timer_after(kMillisecond, dispatch_get_main_queue(), [&] { ++runs; });
  EXPECT_TRUE(weakCaptured.expired()) << "let go of when the next timer is made";
  time.advance(kSecond);
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(strayRuns, 0);
}

}  // namespace
}  // namespace zaffo
