// SPDX-License-Identifier: Apache-2.0
#include "companion/ZFCancelCommand.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "doubles/HeldQueue.h"
#include "doubles/ManualTime.h"

namespace zaffo {
namespace {

TEST(ZFNoopCancelCommand, IsOneSharedObjectAndDoesNothing) {
  const auto& command = ZFNoopCancelCommand::sharedInstance();
  ASSERT_NE(command, nullptr);
  EXPECT_EQ(command, ZFNoopCancelCommand::sharedInstance());
  const auto before = command.use_count();
  command->cancel();
  command->cancel();
  EXPECT_EQ(command.use_count(), before);
}

TEST(ZFCallbackCancelCommand, RunsItsBlockOnTheFirstCancelOnly) {
  int runs = 0;
  ZFCallbackCancelCommand command([&] { ++runs; });
  EXPECT_EQ(runs, 0);
  command.cancel();
  EXPECT_EQ(runs, 1);
  command.cancel();
  EXPECT_EQ(runs, 1);
}

TEST(ZFCallbackCancelCommand, DoesNotRunItsBlockWhenDropped) {
  int runs = 0;
  {
    const ZFCallbackCancelCommand command([&] { ++runs; });
  }
  EXPECT_EQ(runs, 0);
}

TEST(ZFCallbackCancelCommand, LetsGoOfItsBlockAfterTheRun) {
  auto captured = std::make_shared<int>();
  const std::weak_ptr<int> weakCaptured = captured;
  ZFCallbackCancelCommand command([held = std::move(captured)] {});
  EXPECT_FALSE(weakCaptured.expired());
  command.cancel();
  EXPECT_TRUE(weakCaptured.expired());
}

TEST(ZFCallbackCancelCommand, MayBeCancelledAndDroppedByItsOwnBlock) {
  int runs = 0;
  std::shared_ptr<ZFCallbackCancelCommand> command;
  command = std::make_shared<ZFCallbackCancelCommand>([&] {
    ++runs;
    const auto last = std::exchange(command, nullptr);
    last->cancel();
  });
  command->cancel();
  EXPECT_EQ(runs, 1);
}

TEST(ZFCallbackCancelCommand, StandsWithoutABlock) {
  ZFCallbackCancelCommand command(nullptr);
  EXPECT_NO_THROW(command.cancel());
}

TEST(ZFCancellableBlock, RunsAtMostOnce) {
  int runs = 0;
  ZFCancellableBlock block([&] { ++runs; });
  block.run();
  block.run();
  EXPECT_EQ(runs, 1);
}

TEST(ZFCancellableBlock, DoesNothingWhenRunAfterCancel) {
  int runs = 0;
  ZFCancellableBlock block([&] { ++runs; });
  block.cancel();
  block.run();
  block.cancel();
  EXPECT_EQ(runs, 0);
}

TEST(ZFCancellableBlock, LetsGoOfWhatItHoldsOnCancelAndAfterTheRun) {
  for (const bool cancels : {true, false}) {
    auto captured = std::make_shared<int>();
    const std::weak_ptr<int> weakCaptured = captured;
    ZFCancellableBlock block([held = std::move(captured)] {});
    cancels ? block.cancel() : block.run();
    EXPECT_TRUE(weakCaptured.expired());
  }
}

TEST(ZFCancellableBlock, MayRunOrCancelItselfInside) {
  int runs = 0;
  std::unique_ptr<ZFCancellableBlock> block;
  block = std::make_unique<ZFCancellableBlock>([&] {
    ++runs;
    block->run();
    block->cancel();
  });
  block->run();
  EXPECT_EQ(runs, 1);
}

class TimedCommandTest : public testing::Test {
 protected:
  int64_t milliseconds() const { return time_.elapsed() / kNanosecondsPerMillisecond; }
  void advance(int64_t milliseconds) { time_.advance(milliseconds * kNanosecondsPerMillisecond); }

  ManualTime time_;
  const DispatchQueuePtr& main_ = dispatch_get_main_queue();
};

TEST_F(TimedCommandTest, EveryRunsAfterEachPeriodUntilCancelled) {
  std::vector<int64_t> runs;
  const auto command = dispatch_every(0.1, main_, [&] { runs.push_back(milliseconds()); });
  advance(350);
  EXPECT_EQ(runs, (std::vector<int64_t>{100, 200, 300}));
  command->cancel();
  advance(1000);
  EXPECT_EQ(runs.size(), 3U);
}

TEST_F(TimedCommandTest, EveryGoesOnWhenItsCommandIsDropped) {
  int runs = 0;
  ZFCancelCommandPtr inside;
  auto command = dispatch_every(1, main_, [&] {
    if (++runs == 3) inside->cancel();
  });
  inside = std::move(command);
  advance(10'000);
  EXPECT_EQ(runs, 3) << "cancelled by its own block";
}

TEST_F(TimedCommandTest, AfterRunsOnceOnItsQueue) {
  const auto queue = dispatch_queue_create("mine");
  std::vector<int64_t> runs;
  const auto command = dispatch_after_cancellable(1.5, queue, [&] {
    EXPECT_TRUE(queue->isCurrent());
    runs.push_back(milliseconds());
  });
  advance(1499);
  EXPECT_TRUE(runs.empty());
  advance(10'000);
  EXPECT_EQ(runs, std::vector<int64_t>{1500});
  command->cancel();
}

TEST_F(TimedCommandTest, AfterIsNeverEarlyAndNoLaterThanTheNextNanosecond) {
  const std::vector<std::pair<double, int64_t>> delays{
      {29 * 1001 / 30000.0, 967'633'334}, {1.1, 1'100'000'000}, {2.3, 2'300'000'000}};
  for (const auto& [seconds, nanoseconds] : delays) {
    int runs = 0;
    const auto command = dispatch_after_cancellable(seconds, main_, [&] { ++runs; });
    time_.advance(nanoseconds - 1);
    EXPECT_EQ(runs, 0) << seconds;
    time_.advance(1);
    EXPECT_EQ(runs, 1) << seconds;
  }
}

TEST_F(TimedCommandTest, AfterGoesOnWhenItsCommandIsDropped) {
  bool ran = false;
  dispatch_after_cancellable(1, main_, [&] { ran = true; }).reset();
  advance(1000);
  EXPECT_TRUE(ran);
}

TEST_F(TimedCommandTest, AfterDoesNotRunOnceCancelledEvenWhenItsRunIsQueued) {
  const auto queue = std::make_shared<HeldQueue>();
  bool ran = false;
  const auto command = dispatch_after_cancellable(1, queue, [&] { ran = true; });
  advance(1000);
  ASSERT_EQ(queue->waiting(), 1U);
  command->cancel();
  command->cancel();
  queue->runAll();
  EXPECT_FALSE(ran);
}

TEST_F(TimedCommandTest, CancelLetsGoOfTheBlock) {
  auto captured = std::make_shared<int>();
  const std::weak_ptr<int> weakCaptured = captured;
  const auto command = dispatch_after_cancellable(1, main_, [held = std::move(captured)] {});
  command->cancel();
  EXPECT_TRUE(weakCaptured.expired());
}

TEST_F(TimedCommandTest, AfterRunsAtOnceForADelayThatIsNoDelay) {
  int runs = 0;
  for (const double seconds : {0.0, -1.0, -std::numeric_limits<double>::infinity(),
                               std::numeric_limits<double>::quiet_NaN()}) {
    dispatch_after_cancellable(seconds, main_, [&] { ++runs; }).reset();
  }
  EXPECT_EQ(runs, 0) << "never inside the call";
  time_.settle();
  EXPECT_EQ(runs, 4);
}

TEST_F(TimedCommandTest, AfterNeverRunsForADelayBeyondTime) {
  int runs = 0;
  std::vector<ZFCancelCommandPtr> commands;
  for (const double seconds : {1e10, 1e300, std::numeric_limits<double>::infinity()}) {
    commands.push_back(dispatch_after_cancellable(seconds, main_, [&] { ++runs; }));
  }
  advance(100'000'000);
  EXPECT_EQ(runs, 0);
  for (const auto& command : commands) command->cancel();
}

}  // namespace
}  // namespace zaffo
