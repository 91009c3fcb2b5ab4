// SPDX-License-Identifier: Apache-2.0
#include "platform/media/video/Lateness.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace zaffo::media {
namespace {

CMTime milliseconds(int64_t count) {
  return CMTimeMake(count, 1000);
}

constexpr int64_t kMillisecond = 1'000'000;

TEST(Lateness, IsToldByWhereTheLastFrameEndsAndWhenItWasGiven) {
  struct Row {
    int64_t end, given;  // milliseconds
    int64_t now, host;
    bool hurries, isOverdue;
  };
  const std::vector<Row> rows{
      {1000, 5000, 900, 5000, false, false},    // ahead
      {1000, 5000, 1000, 5000, false, false},   // just in time
      {1000, 5000, 1100, 5099, false, false},   // a little late
      {1000, 5000, 1101, 5099, true, false},    // late
      {1000, 5000, 1000, 5100, false, true},    // nothing came for long
      {1000, 5000, 9000, 9000, true, true},     // both
      {-3000, 5000, -2900, 5000, false, false}  // before the beginning
  };
  for (const Row& row : rows) {
    Lateness lateness;
    lateness.gave(milliseconds(row.end), row.given * kMillisecond);
    EXPECT_EQ(lateness.hurries(milliseconds(row.now)), row.hurries) << row.now;
    EXPECT_EQ(lateness.isOverdue(row.host * kMillisecond), row.isOverdue) << row.host;
    EXPECT_EQ(lateness.overdueAt(), (row.given + 100) * kMillisecond);
  }
}

TEST(Lateness, IsFarFromAQuarterOfASecondOn) {
  Lateness lateness;
  EXPECT_FALSE(lateness.isFarBehind(milliseconds(5000)));
  lateness.gave(milliseconds(1000), 0);
  EXPECT_FALSE(lateness.isFarBehind(milliseconds(1250)));
  EXPECT_TRUE(lateness.isFarBehind(milliseconds(1251)));
}

TEST(Lateness, OfAFrameWithoutAnEndDoesNotMakeItHurry) {
  Lateness lateness;
  EXPECT_FALSE(lateness.hurries(milliseconds(5000)));
  lateness.gave(kCMTimeInvalid, 0);
  EXPECT_FALSE(lateness.hurries(milliseconds(5000)));
}

TEST(Lateness, OfOtherFramesIsCountedFromTheirBeginning) {
  Lateness lateness;
  lateness.gave(milliseconds(1000), 1000 * kMillisecond);
  lateness.begin(8000 * kMillisecond);
  EXPECT_FALSE(lateness.hurries(milliseconds(9000)));
  EXPECT_FALSE(lateness.isOverdue(8099 * kMillisecond));
  EXPECT_TRUE(lateness.isOverdue(8100 * kMillisecond));
}

}  // namespace
}  // namespace zaffo::media
