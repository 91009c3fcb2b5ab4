// SPDX-License-Identifier: Apache-2.0
#include "platform/media/MediaTime.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace zaffo::media {
namespace {

TEST(MediaTime, ATimestampIsATimeExactly) {
  const CMTime time = timeFromTimestamp(1001, {1, 30000});
  EXPECT_EQ(time.value, 1001);
  EXPECT_EQ(time.timescale, 30000);
  EXPECT_EQ(timeFromTimestamp(7, {1001, 30000}), CMTimeMake(7007, 30000));
  EXPECT_EQ(timeFromTimestamp(-5, {1, 25}), CMTimeMake(-5, 25));
}

TEST(MediaTime, WhatTheFileDoesNotTellIsInvalid) {
  EXPECT_TRUE(CMTIME_IS_INVALID(timeFromTimestamp(AV_NOPTS_VALUE, {1, 90000})));
  EXPECT_TRUE(CMTIME_IS_INVALID(timeFromTimestamp(1, {0, 90000})));
  EXPECT_TRUE(CMTIME_IS_INVALID(timeFromTimestamp(1, {1, 0})));
}

TEST(MediaTime, ATimestampTooLargeToBeExactIsRounded) {
  const int64_t large = INT64_MAX / 4;
  const CMTime time = timeFromTimestamp(large / 1'000'000'000, {2'000'000'000, 2'000'000'001});
  EXPECT_NEAR(CMTimeGetSeconds(time), static_cast<double>(large) / 1e9, 10);
}

TEST(MediaTime, ATimestampThatNoMediaReachesIsInvalid) {
  EXPECT_TRUE(CMTIME_IS_INVALID(timeFromTimestamp(INT64_MAX / 2, {1, 1000})));
  EXPECT_TRUE(CMTIME_IS_INVALID(timeFromTimestamp(-INT64_MAX / 2, {1, 1000})));
}

TEST(MediaTime, ATimeGoesBackToItsTimestamp) {
  for (const int64_t timestamp : {int64_t{0}, int64_t{-3}, int64_t{123'456'789'012}}) {
    const AVRational timeBase{1001, 30000};
    EXPECT_EQ(timestampFromTime(timeFromTimestamp(timestamp, timeBase), timeBase), timestamp);
  }
}

TEST(MediaTime, ATimeBetweenTwoTimestampsIsTheEarlierOne) {
  EXPECT_EQ(timestampFromTime(CMTimeMake(19, 100), {1, 10}), 1);
  EXPECT_EQ(timestampFromTime(CMTimeMake(-11, 100), {1, 10}), -2);
}

TEST(MediaTime, InfinitiesAreTheExtremesAndNoTimeIsZero) {
  EXPECT_LT(timestampFromTime(kCMTimeNegativeInfinity, {1, 10}), INT64_MIN / 8);
  EXPECT_GT(timestampFromTime(kCMTimePositiveInfinity, {1, 10}), INT64_MAX / 8);
  EXPECT_EQ(timestampFromTime(kCMTimeInvalid, {1, 10}), 0);
  EXPECT_EQ(timestampFromTime(kCMTimeIndefinite, {1, 10}), 0);
  EXPECT_GT(timestampFromTime(CMTimeMake(INT64_MAX, 1), {1, 1'000'000}), INT64_MAX / 8);
  EXPECT_LT(timestampFromTime(CMTimeMake(-INT64_MAX, 1), {1, 1'000'000}), INT64_MIN / 8);
}

}  // namespace
}  // namespace zaffo::media
