// SPDX-License-Identifier: Apache-2.0
#include "platform/coremedia/CMTimeRange.h"

#include <gtest/gtest.h>

namespace zaffo {
namespace {

CMTime seconds(int64_t value) {
  return CMTimeMake(value, 1);
}
CMTimeRange range(int64_t start, int64_t duration) {
  return CMTimeRangeMake(seconds(start), seconds(duration));
}

TEST(CMTimeRange, IsValidWithValidTimesAndADurationThatIsNotNegative) {
  EXPECT_FALSE(CMTIMERANGE_IS_VALID(CMTimeRange{}));
  EXPECT_FALSE(CMTIMERANGE_IS_VALID(kCMTimeRangeInvalid));
  EXPECT_FALSE(CMTIMERANGE_IS_VALID(range(0, -1)));
  EXPECT_FALSE(CMTIMERANGE_IS_VALID(CMTimeRangeMake(kCMTimeZero, CMTimeMakeWithEpoch(1, 1, 1))));
  EXPECT_TRUE(CMTIMERANGE_IS_VALID(range(-5, 0)));
  EXPECT_TRUE(CMTIMERANGE_IS_VALID(CMTimeRangeMake(kCMTimeZero, kCMTimePositiveInfinity)));
  EXPECT_TRUE(CMTIMERANGE_IS_EMPTY(range(3, 0)));
  EXPECT_FALSE(CMTIMERANGE_IS_EMPTY(range(3, 1)));
  EXPECT_FALSE(CMTIMERANGE_IS_EMPTY(kCMTimeRangeInvalid));
}

TEST(CMTimeRange, IsMadeOfItsEnds) {
  EXPECT_EQ(CMTimeRangeFromTimeToTime(seconds(2), seconds(5)), range(2, 3));
  EXPECT_EQ(CMTimeRangeGetEnd(range(2, 3)), seconds(5));
  EXPECT_FALSE(CMTIMERANGE_IS_VALID(CMTimeRangeFromTimeToTime(seconds(5), seconds(2))));
  EXPECT_EQ(CMTimeRangeGetEnd(CMTimeRangeMake(seconds(1), kCMTimePositiveInfinity)),
            kCMTimePositiveInfinity);
}

TEST(CMTimeRange, ContainsItsStartButNotItsEnd) {
  EXPECT_TRUE(CMTimeRangeContainsTime(range(2, 3), seconds(2)));
  EXPECT_TRUE(CMTimeRangeContainsTime(range(2, 3), CMTimeMake(4999, 1000)));
  EXPECT_FALSE(CMTimeRangeContainsTime(range(2, 3), seconds(5)));
  EXPECT_FALSE(CMTimeRangeContainsTime(range(2, 3), CMTimeMake(1999, 1000)));
  EXPECT_FALSE(CMTimeRangeContainsTime(range(2, 0), seconds(2)));
  EXPECT_FALSE(CMTimeRangeContainsTime(range(2, 3), kCMTimeIndefinite));
  EXPECT_FALSE(CMTimeRangeContainsTime(kCMTimeRangeInvalid, seconds(0)));
}

TEST(CMTimeRange, ContainsRangesThatDoNotReachBeyondIt) {
  EXPECT_TRUE(CMTimeRangeContainsTimeRange(range(0, 4), range(0, 4)));
  EXPECT_TRUE(CMTimeRangeContainsTimeRange(range(0, 4), range(1, 2)));
  EXPECT_FALSE(CMTimeRangeContainsTimeRange(range(0, 4), range(3, 2)));
  EXPECT_FALSE(CMTimeRangeContainsTimeRange(range(1, 4), range(0, 2)));
  EXPECT_FALSE(CMTimeRangeContainsTimeRange(range(0, 4), kCMTimeRangeInvalid));
}

TEST(CMTimeRange, Intersects) {
  EXPECT_EQ(CMTimeRangeGetIntersection(range(0, 4), range(2, 4)), range(2, 2));
  EXPECT_EQ(CMTimeRangeGetIntersection(range(0, 2), range(2, 4)), kCMTimeRangeZero);
  EXPECT_EQ(CMTimeRangeGetIntersection(range(0, 1), range(5, 1)), kCMTimeRangeZero);
  EXPECT_FALSE(CMTIMERANGE_IS_VALID(CMTimeRangeGetIntersection(range(0, 1), CMTimeRange{})));
}

TEST(CMTimeRange, UnitesAcrossAGap) {
  EXPECT_EQ(CMTimeRangeGetUnion(range(5, 1), range(0, 1)), range(0, 6));
  EXPECT_EQ(CMTimeRangeGetUnion(range(0, 9), range(1, 1)), range(0, 9));
  EXPECT_FALSE(CMTIMERANGE_IS_VALID(CMTimeRangeGetUnion(CMTimeRange{}, range(0, 1))));
}

TEST(CMTimeRange, ClampsTimesToItsEnds) {
  EXPECT_EQ(CMTimeClampToRange(seconds(1), range(2, 3)), seconds(2));
  EXPECT_EQ(CMTimeClampToRange(seconds(3), range(2, 3)), seconds(3));
  EXPECT_EQ(CMTimeClampToRange(kCMTimePositiveInfinity, range(2, 3)), seconds(5));
  EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeClampToRange(seconds(3), CMTimeRange{})));
  EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeClampToRange(kCMTimeInvalid, range(2, 3))));
}

TEST(CMTimeRange, EqualsByValue) {
  EXPECT_EQ(range(1, 2), CMTimeRangeMake(CMTimeMake(600, 600), CMTimeMake(2000, 1000)));
  EXPECT_FALSE(range(1, 2) == range(1, 3));
  EXPECT_FALSE(range(1, 2) == kCMTimeRangeInvalid);
  EXPECT_EQ(kCMTimeRangeInvalid, range(0, -4));
}

TEST(CMTimeRange, DescribesItself) {
  EXPECT_EQ(CMTimeRangeDescription(range(0, 3)), "{{0/1 = 0.000}, {3/1 = 3.000}}");
  EXPECT_EQ(CMTimeRangeDescription(kCMTimeRangeInvalid), "{INVALID}");
}

}  // namespace
}  // namespace zaffo
