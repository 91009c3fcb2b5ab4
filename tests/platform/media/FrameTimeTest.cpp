// SPDX-License-Identifier: Apache-2.0
#include "platform/media/FrameTime.h"

#include <gtest/gtest.h>

namespace zaffo::media {
namespace {

constexpr int64_t kHour = 3600;
constexpr int64_t kNanoseconds = 1'000'000'000;

TEST(FrameTime, AFrameIsThereFromItsBeginningOn) {
  EXPECT_EQ(framesAtNanoseconds(0, 48000), 0);
  EXPECT_EQ(framesAtNanoseconds(20'833, 48000), 0);
  EXPECT_EQ(framesAtNanoseconds(20'834, 48000), 1);
  EXPECT_EQ(framesAtNanoseconds(kNanoseconds, 44100), 44100);
}

TEST(FrameTime, FramesAndTimesAgreeForDays) {
  constexpr int64_t kDays = 100 * 24 * kHour;
  EXPECT_EQ(framesAtNanoseconds(kDays * kNanoseconds, 48000), kDays * 48000);
  EXPECT_EQ(nanosecondsAtFrame(kDays * 48000, 48000), kDays * kNanoseconds);
  for (int64_t frame = kDays * 48000; frame < kDays * 48000 + 1000; ++frame) {
    const int64_t time = nanosecondsAtFrame(frame, 48000);
    ASSERT_EQ(framesAtNanoseconds(time + 1, 48000), frame);
  }
}

TEST(FrameTime, APositionLiesBetweenFramesToo) {
  EXPECT_DOUBLE_EQ(framePosition(CMTimeMake(1, 4), 2), 0.5);
  EXPECT_DOUBLE_EQ(framePosition(CMTimeMake(-1, 4), 2), -0.5);
  EXPECT_DOUBLE_EQ(framePosition(CMTimeMake(3001, 1000), 48000), 144'048);
}

TEST(FrameTime, APositionIsExactWithinTheFirstHoursWhateverTheTimescale) {
  const CMTime time = CMTimeMake(10 * kHour * 2'000'000'011 + 1, 2'000'000'011);
  EXPECT_NEAR(framePosition(time, 48000) - 10.0 * kHour * 48000, 48000 / 2'000'000'011.0, 1e-6);
}

TEST(FrameTime, TimesThatNoMediaReachesAreLimited) {
  EXPECT_EQ(framePosition(CMTimeMake(INT64_MAX, 1), 192'000), 1e15);
  EXPECT_EQ(framePosition(CMTimeMake(-INT64_MAX, 1), 192'000), -1e15);
}

TEST(FrameTime, TheNearestFrameIsEarlierOrLater) {
  EXPECT_EQ(nearestFrame(CMTimeMake(14, 10), 1), 1);
  EXPECT_EQ(nearestFrame(CMTimeMake(16, 10), 1), 2);
  EXPECT_EQ(nearestFrame(CMTimeMake(-16, 10), 1), -2);
}

}  // namespace
}  // namespace zaffo::media
