// SPDX-License-Identifier: Apache-2.0
#include "platform/streaming/StreamClock.h"

#include <gtest/gtest.h>

namespace zaffo::streaming {
namespace {

constexpr CMTime ticks(int64_t count) {
  return CMTimeMake(count, 90'000);
}

TEST(StreamClock, SegmentsOfARunShareItsOffset) {
  StreamClock clock;
  EXPECT_EQ(clock.offsetFor(0, ticks(132'000), kCMTimeZero), ticks(-132'000));
  EXPECT_EQ(clock.offsetFor(0, ticks(312'001), CMTimeMake(2, 1)), ticks(-132'000));
  EXPECT_EQ(clock.offsetFor(0, ticks(400'000), CMTimeMake(2, 1)), ticks(-132'000));
}

TEST(StreamClock, AnotherRunBeginsWhereItIsListed) {
  StreamClock clock;
  (void)clock.offsetFor(0, ticks(132'000), kCMTimeZero);
  EXPECT_EQ(clock.offsetFor(1, kCMTimeZero, CMTimeMake(4, 1)), CMTimeMake(4, 1));
  EXPECT_EQ(clock.offsetFor(0, ticks(312'000), CMTimeMake(2, 1)), ticks(-132'000));
}

TEST(StreamClock, TimesThatBeginAgainAtZeroGoOn) {
  StreamClock clock;
  const int64_t round = int64_t{1} << 33;
  const CMTime offset = clock.offsetFor(0, ticks(round - 90'000), kCMTimeZero);
  EXPECT_EQ(clock.offsetFor(0, ticks(90'000), CMTimeMake(2, 1)), offset + ticks(round));
  EXPECT_EQ(clock.offsetFor(0, ticks(-90'000), kCMTimeZero), offset + ticks(round));
}

TEST(StreamClock, TimesFarFromTheListBelongToARunOfTheirOwn) {
  StreamClock clock;
  (void)clock.offsetFor(0, ticks(132'000), kCMTimeZero);
  EXPECT_EQ(clock.offsetFor(0, CMTimeMake(1000, 1), CMTimeMake(2, 1)), CMTimeMake(-998, 1));
  const CMTime absurd = CMTimeMake(int64_t{1} << 60, 1);
  EXPECT_EQ(clock.offsetFor(0, absurd, kCMTimeZero), kCMTimeZero - absurd);
}

}  // namespace
}  // namespace zaffo::streaming
