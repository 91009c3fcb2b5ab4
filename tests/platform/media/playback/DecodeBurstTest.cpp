// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/DecodeBurst.h"

#include <gtest/gtest.h>

namespace zaffo::media {
namespace {

TEST(DecodeBurst, DecodesNothingUnasked) {
  EXPECT_FALSE(DecodeBurst().isOn());
}

TEST(DecodeBurst, BeginsWhenHardlyAnyFrameWaitsAndGoesOnUntilAFewDo) {
  DecodeBurst burst;
  burst.update(2, 0, false);
  EXPECT_FALSE(burst.isOn());
  burst.update(1, 0, false);
  EXPECT_TRUE(burst.isOn());
  burst.update(3, 0, false);
  EXPECT_TRUE(burst.isOn());
  burst.update(4, 0, false);
  EXPECT_FALSE(burst.isOn());
  burst.update(2, 0, false);
  EXPECT_FALSE(burst.isOn());
}

TEST(DecodeBurst, ForWhatTakesLongMoreFramesWaitAtBothEnds) {
  DecodeBurst burst;
  burst.update(7, 5, false);
  EXPECT_FALSE(burst.isOn());
  burst.update(6, 5, false);
  EXPECT_TRUE(burst.isOn());
  burst.update(8, 5, false);
  EXPECT_TRUE(burst.isOn());
  burst.update(9, 5, false);
  EXPECT_FALSE(burst.isOn());
}

TEST(DecodeBurst, IsLongerForSmallFramesThatNobodyDraws) {
  constexpr int64_t kSmall = int64_t{1280} * 720;
  const std::size_t many = DecodeBurst::manyFrames(false, kSmall);
  EXPECT_GT(many, DecodeBurst::kManyFrames);
  EXPECT_EQ(DecodeBurst::manyFrames(true, kSmall), DecodeBurst::kManyFrames);
  EXPECT_EQ(DecodeBurst::manyFrames(false, kSmall + 1), DecodeBurst::kManyFrames);
  DecodeBurst burst;
  burst.update(1, 0, false, many);
  burst.update(many - 1, 0, false, many);
  EXPECT_TRUE(burst.isOn());
  burst.update(many, 0, false, many);
  EXPECT_FALSE(burst.isOn());
}

TEST(DecodeBurst, SeesADecodeOnlyRunThroughButBeginsNoneForIt) {
  DecodeBurst burst;
  burst.update(4, 0, true);
  EXPECT_FALSE(burst.isOn());
  burst.update(1, 0, true);
  EXPECT_TRUE(burst.isOn());
  burst.update(4, 0, true);
  EXPECT_TRUE(burst.isOn());
  burst.update(4, 0, false);
  EXPECT_FALSE(burst.isOn());
}

TEST(DecodeBurst, IsOverOnceItIsStopped) {
  DecodeBurst burst;
  burst.update(0, 0, false);
  burst.stop();
  EXPECT_FALSE(burst.isOn());
}

}  // namespace
}  // namespace zaffo::media
