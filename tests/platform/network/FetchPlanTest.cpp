// SPDX-License-Identifier: Apache-2.0
#include "platform/network/FetchPlan.h"

#include <gtest/gtest.h>

#include "Simulation.h"

namespace zaffo::network {
namespace {

const std::vector<ViewerShare> kUsual{{1, .95}, {5, .6}, {20, .3}, {60, .1}};
const std::vector<ViewerShare> kFickle{{1, .9}, {2, .1}, {20, 0}};

ClipOutlook outlook(double buffered, const std::vector<ViewerShare>& viewers = kUsual) {
  ClipOutlook clip;
  clip.buffered = buffered;
  clip.next = {{0.75, 0.8}, {1.2, 1.28}, {1.85, 1.92}};
  clip.viewers = viewers;
  if (buffered > 0) clip.lastQuality = 0.75;
  return clip;
}

FetchChoice choose(std::vector<ClipOutlook> clips, double throughput) {
  const std::vector<double> past(10, throughput);
  return FetchPlan().choose(clips, past, 0.08);
}

TEST(FetchPlan, FirstBringsThePictureThatSomebodyWaitsFor) {
  EXPECT_EQ(choose({outlook(0), outlook(0), outlook(0)}, 2).clip, 0U);
  // Even where hardly anybody will see it.
  auto late = outlook(0, kFickle);
  late.position = 3;
  EXPECT_EQ(choose({late, outlook(0)}, 2).clip, 0U);
}

TEST(FetchPlan, BringsTheStartOfTheNextClipOnceTheOneInViewIsSafe) {
  EXPECT_EQ(choose({outlook(10), outlook(0), outlook(0)}, 2).clip, 1U);
  EXPECT_EQ(choose({outlook(0.5), outlook(0)}, 2).clip, 0U);
}

TEST(FetchPlan, WaitsWhenNothingIsWorthItsBytes) {
  const auto choice = choose({outlook(30), outlook(20), outlook(20)}, 10);
  EXPECT_EQ(choice.clip, std::nullopt);
  EXPECT_GT(choice.waitSeconds, 0);
}

TEST(FetchPlan, LeavesWhatHardlyAnybodyWillSee) {
  EXPECT_EQ(choose({outlook(30), outlook(2.5, kFickle)}, 1).clip, std::nullopt);
}

TEST(FetchPlan, HasNothingToDoAtTheEndOfAll) {
  auto ended = outlook(3);
  ended.next.clear();
  EXPECT_EQ(choose({ended}, 2).clip, std::nullopt);
  EXPECT_EQ(FetchPlan().choose({}, {}, 0.08).clip, std::nullopt);
}

TEST(FetchPlan, TakesTheRenditionThatTheLinkCarries) {
  EXPECT_EQ(choose({outlook(0)}, 0.3).rendition, 0U);
  EXPECT_EQ(choose({outlook(1)}, 20).rendition, 2U);
  // A fast link is none before it was measured.
  const std::vector<ClipOutlook> clips{outlook(0)};
  EXPECT_EQ(FetchPlan().choose(clips, {}, 0.08).rendition, 0U);
}

TEST(FetchPlan, ReadsTheShareOfViewersBetweenItsPoints) {
  EXPECT_DOUBLE_EQ(FetchPlan::shareAt(kFickle, 0), 1);
  EXPECT_DOUBLE_EQ(FetchPlan::shareAt(kFickle, 0.5), 0.95);
  EXPECT_DOUBLE_EQ(FetchPlan::shareAt(kFickle, 1.5), 0.5);
  EXPECT_DOUBLE_EQ(FetchPlan::shareAt(kFickle, 99), 0);
  EXPECT_DOUBLE_EQ(FetchPlan::shareAt({}, 5), 1);
}

/// Over the model of a feed, beside the two simple policies.
class FetchPlanInAFeed : public testing::TestWithParam<int> {
 protected:
  static constexpr int kViewers = 30;
  static constexpr unsigned kSeed = 1;
  const simulation::LinkClass& kind =
      simulation::linkClasses()[static_cast<std::size_t>(GetParam())];
  const simulation::Outcome planned = average(simulation::plannedPolicy(), kind, kViewers, kSeed);
  const simulation::Outcome filling = average(simulation::fillingPolicy(), kind, kViewers, kSeed);
  const simulation::Outcome fixed = average(simulation::fixedPolicy(), kind, kViewers, kSeed);
};

TEST_P(FetchPlanInAFeed, ScoresAboveSimplePolicies) {
  EXPECT_GT(planned.score, filling.score);
  EXPECT_GT(planned.score, fixed.score);
}

TEST_P(FetchPlanInAFeed, WastesLessThanHalfOfWhatHoardingDoes) {
  EXPECT_LT(planned.wasted, filling.wasted / 2);
}

TEST_P(FetchPlanInAFeed, StallsLeastWhereTheLinkIsScarce) {
  // A link that has room for twice the best rendition seldom stalls anybody who takes less of it.
  if (kind.name == "high") {
    EXPECT_LT(planned.stalled, 1.5);
    return;
  }
  EXPECT_LT(planned.stalled, filling.stalled);
  EXPECT_LT(planned.stalled, fixed.stalled);
}

INSTANTIATE_TEST_SUITE_P(OfEachClass, FetchPlanInAFeed, testing::Range(0, 4));

}  // namespace
}  // namespace zaffo::network
