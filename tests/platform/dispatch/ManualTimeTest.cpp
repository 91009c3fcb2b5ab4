// SPDX-License-Identifier: Apache-2.0
#include "doubles/ManualTime.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/dispatch/DispatchTimer.h"

namespace zaffo {
namespace {

TEST(ManualTime, IsInForceWhileItLives) {
  EXPECT_EQ(TimeSource::replacement(), nullptr);
  {
    ManualTime time;
    EXPECT_EQ(TimeSource::replacement(), &time);
    EXPECT_EQ(TimeSource::now(), time.start());
    time.advance(5);
    EXPECT_EQ(TimeSource::now(), time.start() + 5);
    EXPECT_EQ(time.elapsed(), 5);
  }
  EXPECT_EQ(TimeSource::replacement(), nullptr);
}

TEST(ManualTime, GoesOnWhereTheOneBeforeEnded) {
  int64_t end = 0;
  {
    ManualTime time;
    EXPECT_GE(time.start(), ManualTime::kStart);
    time.advance(5);
    end = time.nanoseconds();
  }
  EXPECT_EQ(ManualTime().start(), end);
}

TEST(ManualTime, StandsStillUnlessMoved) {
  ManualTime time;
  time.settle();
  EXPECT_EQ(time.elapsed(), 0);
}

TEST(ManualTime, ShowsEveryBlockTheTimeAtWhichItWasDue) {
  ManualTime time;
  const auto worker = dispatch_queue_create("worker");
  std::vector<int64_t> seen;
  const auto see = [&] { seen.push_back(time.elapsed()); };
  const auto timer = dispatch_timer_after(10, worker, [&] {
    see();
    dispatch_get_main_queue()->async([&] {
      see();
      worker->async([&] {
        see();
        dispatch_timer_after(5, dispatch_get_main_queue(), see).reset();
      });
    });
  });
  time.advance(1000);
  EXPECT_EQ(seen, (std::vector<int64_t>{10, 10, 10, 15}));
  EXPECT_EQ(time.elapsed(), 1000);
}

TEST(ManualTime, RunsWhatIsDueAtTheVeryEndOfAnAdvance) {
  ManualTime time;
  std::string order;
  const auto timer = dispatch_timer_after(10, dispatch_get_main_queue(), [&] {
    order += 'a';
    dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_LOW)->async([&] { order += 'b'; });
  });
  time.advance(10);
  EXPECT_EQ(order, "ab");
}

TEST(ManualTime, SettlesAcrossWorkersAndTheMainQueueWithoutMovingTime) {
  ManualTime time;
  const auto worker = dispatch_queue_create_blocking("worker");
  int hops = 0;
  std::function<void()> hop = [&] {
    if (++hops < 100) (hops % 2 ? worker : dispatch_get_main_queue())->async(hop);
  };
  worker->async(hop);
  time.settle();
  EXPECT_EQ(hops, 100);
  EXPECT_EQ(time.elapsed(), 0);
}

TEST(ManualTime, GivesTheSameOrderInEveryRun) {
  const auto run = [] {
    ManualTime time;
    std::string order;
    const auto& main = dispatch_get_main_queue();
    const auto slow = dispatch_timer_every(5, main, [&] { order += 's'; });
    const auto fast = dispatch_timer_every(1000, main, [&] { order += 'f'; });
    const auto third = dispatch_timer_every(1500, main, [&] { order += 't'; });
    slow->cancel();
    time.advance(6000);
    fast->cancel();
    third->cancel();
    return order;
  };
  // Where two are due at once the one that was put on the heap first comes first: at 3000 the
  // second period of the slower one was fixed at 1500, the third of the faster one at 2000.
  const std::string first = run();
  EXPECT_EQ(first, "ftftfftftf");
  for (int i = 0; i < 20; ++i) EXPECT_EQ(run(), first);
}

}  // namespace
}  // namespace zaffo
