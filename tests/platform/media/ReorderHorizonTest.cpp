// SPDX-License-Identifier: Apache-2.0
#include "platform/media/ReorderHorizon.h"

#include <gtest/gtest.h>

namespace zaffo::media {
namespace {

CMTime frame(int number) {
  return CMTimeMake(number, 30);
}

Sample sampleAt(CMTime decode, CMTime presentation) {
  Sample sample;
  sample.decode = decode;
  sample.presentation = presentation;
  return sample;
}

TEST(ReorderHorizon, KnowsNothingAtFirst) {
  EXPECT_EQ(ReorderHorizon().time(), kCMTimeNegativeInfinity);
}

TEST(ReorderHorizon, NothingIsPresentedBeforeItIsDecoded) {
  ReorderHorizon horizon;
  horizon.pass(sampleAt(frame(8), frame(10)));
  EXPECT_EQ(horizon.time(), frame(8));
  horizon.pass(sampleAt(frame(9), frame(14)));
  EXPECT_EQ(horizon.time(), frame(9));
}

TEST(ReorderHorizon, NeverGoesBack) {
  ReorderHorizon horizon;
  horizon.pass(sampleAt(frame(8), frame(10)));
  horizon.pass(sampleAt(frame(3), frame(5)));
  horizon.pass(sampleAt(kCMTimeInvalid, frame(5)));
  EXPECT_EQ(horizon.time(), frame(8));
}

TEST(ReorderHorizon, WithoutDecodeTimesSeventeenLaterOnesSettleATime) {
  ReorderHorizon horizon;
  for (int i = 0; i < 16; ++i) horizon.pass(sampleAt(kCMTimeInvalid, frame(100 - i)));
  EXPECT_EQ(horizon.time(), kCMTimeNegativeInfinity) << "a codec may present one before all these";
  horizon.pass(sampleAt(kCMTimeInvalid, frame(50)));
  EXPECT_EQ(horizon.time(), frame(50));
  horizon.pass(sampleAt(kCMTimeInvalid, frame(10)));
  EXPECT_EQ(horizon.time(), frame(50)) << "an earlier one tells nothing of those that follow";
  horizon.pass(sampleAt(kCMTimeInvalid, frame(200)));
  EXPECT_EQ(horizon.time(), frame(85));
}

TEST(ReorderHorizon, ASampleWithoutTimesTellsNothing) {
  ReorderHorizon horizon;
  for (int i = 0; i < 40; ++i) horizon.pass(sampleAt(kCMTimeInvalid, kCMTimeInvalid));
  EXPECT_EQ(horizon.time(), kCMTimeNegativeInfinity);
}

}  // namespace
}  // namespace zaffo::media
