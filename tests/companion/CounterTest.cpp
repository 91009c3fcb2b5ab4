// SPDX-License-Identifier: Apache-2.0
#include "companion/Counter.h"

#include <gtest/gtest.h>

namespace zaffo {
namespace {

constexpr auto kLargest = std::numeric_limits<std::int64_t>::max();
constexpr auto kSmallest = std::numeric_limits<std::int64_t>::min();

TEST(Counter, CountsByOne) {
  EXPECT_EQ(incremented(41), 42);
  EXPECT_EQ(decremented(0), -1);
  EXPECT_EQ(incremented(kLargest - 1), kLargest);
  EXPECT_EQ(decremented(kSmallest + 1), kSmallest);
}

TEST(Sequence, NumbersInOrderFromItsFirst) {
  Sequence fromZero, fromSeven(7);
  EXPECT_EQ(fromZero.next(), 0);
  EXPECT_EQ(fromZero.next(), 1);
  EXPECT_EQ(fromSeven.next(), 7);
}

TEST(SequenceDeathTest, NeverWraps) {
  Sequence almostThere(kLargest - 1);
  EXPECT_EQ(almostThere.next(), kLargest - 1);
  EXPECT_DEATH((void)almostThere.next(), "overflow");
}

TEST(CounterDeathTest, NeverWraps) {
  EXPECT_DEATH((void)incremented(kLargest), "overflow");
  EXPECT_DEATH((void)decremented(kSmallest), "overflow");
}

}  // namespace
}  // namespace zaffo
