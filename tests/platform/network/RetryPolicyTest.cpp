// SPDX-License-Identifier: Apache-2.0
#include "platform/network/RetryPolicy.h"

#include <gtest/gtest.h>

namespace zaffo::network {
namespace {

using std::chrono::milliseconds;

TEST(RetryPolicy, PausesLongerEachTimeAndThenGivesUp) {
  const RetryPolicy policy;
  EXPECT_EQ(policy.pauseAfter(1, {}, 0), milliseconds(400));
  EXPECT_EQ(policy.pauseAfter(2, {}, 0), milliseconds(800));
  EXPECT_EQ(policy.pauseAfter(3, {}, 0), milliseconds(1600));
  EXPECT_EQ(policy.pauseAfter(4, {}, 0), milliseconds(3200));
  EXPECT_EQ(policy.pauseAfter(5, {}, 0), std::nullopt);
}

TEST(RetryPolicy, BoundsThePause) {
  RetryPolicy policy;
  policy.attempts = 1000;
  EXPECT_EQ(policy.pauseAfter(999, {}, 0), milliseconds(8000));
}

TEST(RetryPolicy, ShortensAPauseByUpToAHalfAtRandom) {
  const RetryPolicy policy;
  EXPECT_EQ(policy.pauseAfter(1, {}, 1), milliseconds(200));
  EXPECT_EQ(policy.pauseAfter(1, {}, 0.5), milliseconds(300));
}

TEST(RetryPolicy, WaitsAsLongAsTheServerAsks) {
  const RetryPolicy policy;
  EXPECT_EQ(policy.pauseAfter(1, 7, 0), milliseconds(7000));
  EXPECT_EQ(policy.pauseAfter(1, 0, 0), milliseconds(400));
  EXPECT_EQ(policy.pauseAfter(1, 60, 0), milliseconds(60'000));
  EXPECT_EQ(policy.pauseAfter(1, 61, 0), std::nullopt);
}

}  // namespace
}  // namespace zaffo::network
