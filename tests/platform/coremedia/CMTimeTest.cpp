// SPDX-License-Identifier: Apache-2.0
#include "platform/coremedia/CMTime.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace zaffo {
namespace {

constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
constexpr int64_t kLeast = std::numeric_limits<int64_t>::min();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

void expectTime(CMTime time, CMTimeValue value, CMTimeScale timescale, bool rounded = false) {
  EXPECT_TRUE(CMTIME_IS_NUMERIC(time)) << CMTimeDescription(time);
  EXPECT_EQ(time.value, value);
  EXPECT_EQ(time.timescale, timescale);
  EXPECT_EQ(CMTIME_HAS_BEEN_ROUNDED(time), rounded);
}

TEST(CMTime, IsInvalidWhenZeroInitialisedOrWithoutPositiveTimescale) {
  EXPECT_TRUE(CMTIME_IS_INVALID(CMTime{}));
  EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeMake(1, 0)));
  EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeMake(1, -30)));
  EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeMakeWithEpoch(1, 0, 3)));
  const CMTime forged{1, 0, kCMTimeFlags_Valid, 0};
  EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeAdd(forged, kCMTimeZero)));
  EXPECT_TRUE(std::isnan(CMTimeGetSeconds(forged)));
}

TEST(CMTime, AddsAtTheLeastCommonMultipleOfTheTimescales) {
  expectTime(CMTimeMake(1, 30) + CMTimeMake(2, 30), 3, 30);
  expectTime(CMTimeMake(1, 4) + CMTimeMake(1, 6), 5, 12);
  expectTime(CMTimeMake(1001, 30000) + CMTimeMake(1024, 48000), 13128, 240000);
  expectTime(CMTimeMake(1, 4) - CMTimeMake(1, 2), -1, 4);
}

TEST(CMTime, RoundsAtTheGreatestTimescaleWhereNoCommonOneFits) {
  const CMTime sum = CMTimeMake(1, kCMTimeMaxTimescale) + CMTimeMake(1, 1'000'000'000);
  expectTime(sum, 3, kCMTimeMaxTimescale, true);
}

TEST(CMTime, HalvesTheTimescaleOfASumThatDoesNotFit) {
  expectTime(CMTimeMake(kMost, 1000) + CMTimeMake(1, 1000), (kMost / 2) + 1, 500);
  expectTime(CMTimeMake(kMost, 1000) + CMTimeMake(2, 1000), (kMost / 2) + 2, 500, true);
}

TEST(CMTime, BecomesAnInfinityInsteadOfWrapping) {
  EXPECT_EQ(CMTimeMake(kMost, 1) + CMTimeMake(1, 1), kCMTimePositiveInfinity);
  EXPECT_EQ(CMTimeMake(kLeast, 1) - CMTimeMake(1, 1), kCMTimeNegativeInfinity);
  EXPECT_EQ(CMTimeMake(kLeast, 1) + CMTimeMake(kLeast, 1), kCMTimeNegativeInfinity);
  EXPECT_EQ(CMTimeMultiply(CMTimeMake(kMost, 1), -2), kCMTimeNegativeInfinity);
  EXPECT_EQ(CMTimeConvertScale(CMTimeMake(kMost, 1), 2), kCMTimePositiveInfinity);
  EXPECT_EQ(CMTimeConvertScale(CMTimeMake(kLeast, 1), 2), kCMTimeNegativeInfinity);
  EXPECT_EQ(CMTimeMultiplyByFloat64(CMTimeMake(1, 1), 1e300), kCMTimePositiveInfinity);
  EXPECT_EQ(CMTimeMakeWithSeconds(-1e19, 1), kCMTimeNegativeInfinity);
  expectTime(CMTimeMake(kLeast + 1, 1) - CMTimeMake(1, 1), kLeast, 1);
}

TEST(CMTime, CarriesInvalidInfiniteAndIndefiniteThroughSums) {
  const CMTime one = CMTimeMake(1, 1);
  for (const CMTime& other : {one, kCMTimePositiveInfinity, kCMTimeIndefinite, kCMTimeInvalid}) {
    EXPECT_TRUE(CMTIME_IS_INVALID(kCMTimeInvalid + other));
    EXPECT_TRUE(CMTIME_IS_INVALID(other - kCMTimeInvalid));
  }
  EXPECT_EQ(kCMTimePositiveInfinity + one, kCMTimePositiveInfinity);
  EXPECT_EQ(one - kCMTimePositiveInfinity, kCMTimeNegativeInfinity);
  EXPECT_EQ(kCMTimeIndefinite + kCMTimeNegativeInfinity, kCMTimeNegativeInfinity);
  EXPECT_EQ(kCMTimePositiveInfinity + kCMTimePositiveInfinity, kCMTimePositiveInfinity);
  EXPECT_TRUE(CMTIME_IS_INVALID(kCMTimePositiveInfinity + kCMTimeNegativeInfinity));
  EXPECT_TRUE(CMTIME_IS_INVALID(kCMTimePositiveInfinity - kCMTimePositiveInfinity));
  EXPECT_TRUE(CMTIME_IS_INDEFINITE(kCMTimeIndefinite + one));
  EXPECT_TRUE(CMTIME_IS_INDEFINITE(one - kCMTimeIndefinite));
}

TEST(CMTime, KeepsTheMarkOfARoundedOperand) {
  const CMTime third = CMTimeConvertScale(CMTimeMake(1, 3), 10);
  expectTime(third, 3, 10, true);
  expectTime(third + CMTimeMake(1, 10), 4, 10, true);
  expectTime(CMTimeMultiply(third, 2), 6, 10, true);
  expectTime(CMTimeMultiplyByFloat64(third, 2), 6, 10, true);
  expectTime(CMTimeConvertScale(third, 20), 6, 20, true);
  expectTime(CMTimeMultiplyByRatio(third, 1, 3), 1, 10, true);
}

TEST(CMTime, AddsTimesOfAnEpochToDurationsOnly) {
  const CMTime second = CMTimeMake(1, 1);
  const CMTime inLoop2 = CMTimeMakeWithEpoch(5, 1, 2), inLoop3 = CMTimeMakeWithEpoch(5, 1, 3);
  EXPECT_EQ((inLoop2 + second).epoch, 2);
  EXPECT_EQ((second + inLoop2).epoch, 2);
  EXPECT_EQ((inLoop2 - second).epoch, 2);
  EXPECT_EQ((inLoop2 - inLoop2).epoch, 0);
  EXPECT_TRUE(CMTIME_IS_INVALID(inLoop2 + inLoop3));
  EXPECT_TRUE(CMTIME_IS_INVALID(inLoop2 - inLoop3));
  EXPECT_EQ(CMTimeConvertScale(inLoop2, 600).epoch, 2);
}

TEST(CMTime, OrdersEveryKindOfTime) {
  const CMTime rising[] = {kCMTimeNegativeInfinity,
                           CMTimeMakeWithEpoch(9, 1, -1),
                           CMTimeMake(kLeast, 1),
                           CMTimeMake(-1, 3),
                           kCMTimeZero,
                           CMTimeMake(1, kCMTimeMaxTimescale),
                           CMTimeMake(333'333'333, 1'000'000'000),
                           CMTimeMake(1, 3),
                           CMTimeMake(kMost, 1),
                           CMTimeMakeWithEpoch(-9, 1, 1),
                           kCMTimeIndefinite,
                           kCMTimePositiveInfinity,
                           kCMTimeInvalid};
  for (std::size_t i = 0; i < std::size(rising); ++i) {
    for (std::size_t j = 0; j < std::size(rising); ++j) {
      const int expected = i < j ? -1 : i > j ? 1 : 0;
      EXPECT_EQ(CMTimeCompare(rising[i], rising[j]), expected) << i << " and " << j;
      EXPECT_EQ(CMTimeCompare(CMTimeMinimum(rising[i], rising[j]), rising[std::min(i, j)]), 0);
      EXPECT_EQ(CMTimeCompare(CMTimeMaximum(rising[i], rising[j]), rising[std::max(i, j)]), 0);
    }
  }
  EXPECT_EQ(CMTimeMake(1, 2), CMTimeMake(300, 600));
}

TEST(CMTime, ConvertsByEachRoundingMethod) {
  using enum CMTimeRoundingMethod;
  struct Row {
    CMTimeRoundingMethod method;
    int64_t half, minusHalf, third, minusThird;
  };
  for (const Row& row : {Row{RoundHalfAwayFromZero, 1, -1, 0, 0}, Row{RoundTowardZero, 0, 0, 0, 0},
                         Row{RoundAwayFromZero, 1, -1, 1, -1}, Row{QuickTime, 0, -1, 0, -1},
                         Row{RoundTowardPositiveInfinity, 1, 0, 1, 0},
                         Row{RoundTowardNegativeInfinity, 0, -1, 0, -1}}) {
    SCOPED_TRACE(static_cast<int>(row.method));
    expectTime(CMTimeConvertScale(CMTimeMake(1, 2), 1, row.method), row.half, 1, true);
    expectTime(CMTimeConvertScale(CMTimeMake(-1, 2), 1, row.method), row.minusHalf, 1, true);
    expectTime(CMTimeConvertScale(CMTimeMake(1, 3), 1, row.method), row.third, 1, true);
    expectTime(CMTimeConvertScale(CMTimeMake(-1, 3), 1, row.method), row.minusThird, 1, true);
    expectTime(CMTimeConvertScale(CMTimeMake(4, 2), 1, row.method), 2, 1);
  }
  expectTime(CMTimeConvertScale(CMTimeMake(1, 3), 10, QuickTime), 4, 10, true);
  EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeConvertScale(kCMTimeZero, 0)));
  EXPECT_EQ(CMTimeConvertScale(kCMTimeIndefinite, 30), kCMTimeIndefinite);
}

TEST(CMTime, MakesTimesOfSeconds) {
  expectTime(CMTimeMakeWithSeconds(0.1, 600), 60, 600);
  expectTime(CMTimeMakeWithSeconds(2.0, 1'000'000'000), 2'000'000'000, 1'000'000'000);
  expectTime(CMTimeMakeWithSeconds(-1.5, 2), -3, 2);
  expectTime(CMTimeMakeWithSeconds(0.0001, 600), 0, 600, true);  // less than a tick
  expectTime(CMTimeMakeWithSeconds(1.0 / 3, 600), 200, 600);
  expectTime(CMTimeMakeWithSeconds(0.334, 600), 200, 600, true);
  expectTime(CMTimeMakeWithSeconds(5e-324, 600), 0, 600, true);
  expectTime(CMTimeMakeWithSeconds(9e18, 600), 9'000'000'000'000'000'000, 1);
  EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeMakeWithSeconds(std::nan(""), 600)));
  EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeMakeWithSeconds(1, 0)));
  EXPECT_EQ(CMTimeMakeWithSeconds(kInfinity, 600), kCMTimePositiveInfinity);
  EXPECT_EQ(CMTimeMakeWithSeconds(-kInfinity, 600), kCMTimeNegativeInfinity);
}

TEST(CMTime, TellsSeconds) {
  EXPECT_DOUBLE_EQ(CMTimeGetSeconds(CMTimeMake(3003, 30000)), 0.1001);
  EXPECT_EQ(CMTimeGetSeconds(kCMTimePositiveInfinity), kInfinity);
  EXPECT_EQ(CMTimeGetSeconds(kCMTimeNegativeInfinity), -kInfinity);
  EXPECT_TRUE(std::isnan(CMTimeGetSeconds(kCMTimeIndefinite)));
  EXPECT_TRUE(std::isnan(CMTimeGetSeconds(kCMTimeInvalid)));
}

TEST(CMTime, MultipliesByFractionsAtAFineTimescaleWhenItMust) {
  expectTime(CMTimeMultiplyByFloat64(CMTimeMake(100, 600), 0.1), 10, 600);
  expectTime(CMTimeMultiplyByFloat64(CMTimeMake(1, 1), 0.5), 32768, 65536);
  expectTime(CMTimeMultiplyByFloat64(CMTimeMake(1, 1), 1.0 / 3), 21845, 65536, true);
  expectTime(CMTimeMultiplyByFloat64(CMTimeMake(5, 90000), 0.5), 3, 90000, true);
  expectTime(CMTimeMultiplyByFloat64(CMTimeMake(7, 30), 0), 0, 30);
}

TEST(CMTime, MultipliesByRatiosExactlyWhereATimescaleAllows) {
  expectTime(CMTimeMultiplyByRatio(CMTimeMake(10, 30), 1, 2), 5, 30);
  expectTime(CMTimeMultiplyByRatio(CMTimeMake(1, 30), 1, 2), 1, 60);
  expectTime(CMTimeMultiplyByRatio(CMTimeMake(1, 30), -2, 3), -2, 90);
  expectTime(CMTimeMultiplyByRatio(CMTimeMake(1, 30), 2, -3), -2, 90);
  expectTime(CMTimeMultiplyByRatio(CMTimeMake(kMost, 1), 2, 2), kMost, 1);
  EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeMultiplyByRatio(CMTimeMake(1, 1), 1, 0)));
  const CMTime tiny = CMTimeMultiplyByRatio(CMTimeMake(1, kCMTimeMaxTimescale), 1, 2);
  expectTime(tiny, 1, kCMTimeMaxTimescale, true);
}

TEST(CMTime, GivesProductsOfInfinitiesTheirSign) {
  EXPECT_EQ(CMTimeMultiply(kCMTimePositiveInfinity, -3), kCMTimeNegativeInfinity);
  EXPECT_EQ(CMTimeMultiplyByRatio(kCMTimeNegativeInfinity, -1, 2), kCMTimePositiveInfinity);
  EXPECT_EQ(CMTimeMultiplyByFloat64(CMTimeMake(-1, 1), kInfinity), kCMTimeNegativeInfinity);
  EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeMultiply(kCMTimePositiveInfinity, 0)));
  EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeMultiplyByFloat64(kCMTimeZero, kInfinity)));
  EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeMultiplyByFloat64(CMTimeMake(1, 1), std::nan(""))));
  EXPECT_TRUE(CMTIME_IS_INDEFINITE(CMTimeMultiply(kCMTimeIndefinite, 0)));
  EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeMultiplyByFloat64(kCMTimeInvalid, 2)));
}

TEST(CMTime, HasAnAbsoluteValue) {
  expectTime(CMTimeAbsoluteValue(CMTimeMake(-3, 4)), 3, 4);
  expectTime(CMTimeAbsoluteValue(CMTimeMake(3, 4)), 3, 4);
  expectTime(CMTimeAbsoluteValue(CMTimeMake(kLeast, 4)), int64_t{1} << 62, 2);
  EXPECT_EQ(CMTimeAbsoluteValue(kCMTimeNegativeInfinity), kCMTimePositiveInfinity);
  EXPECT_EQ(CMTimeAbsoluteValue(kCMTimeIndefinite), kCMTimeIndefinite);
}

TEST(CMTime, DescribesItself) {
  EXPECT_EQ(CMTimeDescription(CMTimeMake(3003, 30000)), "{3003/30000 = 0.100}");
  EXPECT_EQ(CMTimeDescription(kCMTimeInvalid), "{INVALID}");
  EXPECT_EQ(CMTimeDescription(kCMTimeIndefinite), "{INDEFINITE}");
  EXPECT_EQ(CMTimeDescription(kCMTimePositiveInfinity), "{+INFINITY}");
  EXPECT_EQ(CMTimeDescription(kCMTimeNegativeInfinity), "{-INFINITY}");
  CMTime third = CMTimeMakeWithEpoch(1, 3, 2);
  third.flags |= kCMTimeFlags_HasBeenRounded;
  EXPECT_EQ(CMTimeDescription(third), "{1/3 = 0.333, rounded, epoch 2}");
}

}  // namespace
}  // namespace zaffo
