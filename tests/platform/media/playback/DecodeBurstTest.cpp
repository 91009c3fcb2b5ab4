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
