// SPDX-License-Identifier: Apache-2.0
#include "feed/LoadPlan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zaffo::feed {
namespace {

using testing::ElementsAre;

TEST(LoadPlan, TheCurrentPageComesFirstThenTheNextThePreviousAndTheOneAfter) {
  EXPECT_THAT(pagesToLoad(5, 10, true, 8), ElementsAre(5, 6, 4, 7));
}

TEST(LoadPlan, GoingBackwardsMirrorsTheOrder) {
  EXPECT_THAT(pagesToLoad(5, 10, false, 8), ElementsAre(5, 4, 6, 3));
}

TEST(LoadPlan, PagesBeyondTheEndsAreLeftOut) {
  EXPECT_THAT(pagesToLoad(0, 10, true, 8), ElementsAre(0, 1, 2));
  EXPECT_THAT(pagesToLoad(9, 10, true, 8), ElementsAre(9, 8));
  EXPECT_THAT(pagesToLoad(0, 1, true, 8), ElementsAre(0));
}

TEST(LoadPlan, TheCapacityIsKept) {
  EXPECT_THAT(pagesToLoad(5, 10, true, 1), ElementsAre(5));
  EXPECT_THAT(pagesToLoad(5, 10, true, 2), ElementsAre(5, 6));
  EXPECT_TRUE(pagesToLoad(5, 10, true, 0).empty());
  EXPECT_TRUE(pagesToLoad(5, 10, true, -3).empty());
}

TEST(LoadPlan, ThreePagesOnEitherSideAreNear) {
  EXPECT_TRUE(isNear(2, 5));
  EXPECT_TRUE(isNear(8, 5));
  EXPECT_FALSE(isNear(1, 5));
  EXPECT_FALSE(isNear(9, 5));
}

}  // namespace
}  // namespace zaffo::feed
