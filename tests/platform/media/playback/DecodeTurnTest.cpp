// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/DecodeTurn.h"

#include <gtest/gtest.h>

#include "doubles/ManualTime.h"

namespace zaffo::media {
namespace {

int stepsOf(ManualTime& time, int64_t each) {
  int steps = 0;
  for (DecodeTurn turn; turn.goesOn(); ++steps) time.advance(each);
  return steps;
}

TEST(DecodeTurn, IsOverAfterFiveMilliseconds) {
  ManualTime time;
  EXPECT_EQ(stepsOf(time, kNanosecondsPerMillisecond), 5);
  EXPECT_EQ(stepsOf(time, 2 * kNanosecondsPerMillisecond), 3);
}

TEST(DecodeTurn, ConsistsOfOneStepWhereThatTakesLonger) {
  ManualTime time;
  EXPECT_EQ(stepsOf(time, 100 * kNanosecondsPerMillisecond), 1);
}

TEST(DecodeTurn, IsOverAfterSoManySteps) {
  ManualTime time;
  EXPECT_EQ(stepsOf(time, 0), DecodeTurn::kMostSteps);
}

}  // namespace
}  // namespace zaffo::media
