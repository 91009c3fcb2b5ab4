// SPDX-License-Identifier: Apache-2.0
#include "overlay/OverlayTiming.h"

#include <gtest/gtest.h>

namespace zaffo::feed {
namespace {

constexpr int64_t kMillisecond = 1'000'000;
constexpr int64_t kStart = 5'000 * kMillisecond;

TEST(OverlayTiming, ShowsNothingAndWaitsForNothingAtFirst) {
  const OverlayTiming timing;
  EXPECT_TRUE(timing.look(kStart).isNothing());
  EXPECT_FALSE(timing.nextChange(kStart).has_value());
}

TEST(OverlayTiming, TheTitleStaysForAWhileThenFadesThenAllIsStill) {
  OverlayTiming timing;
  timing.noteActivity(kStart);
  const int64_t end = kStart + OverlayTiming::kShown;
  EXPECT_EQ(timing.look(end).title, 1);
  EXPECT_NEAR(timing.look(end + OverlayTiming::kFade / 2).title, 0.5, 0.01);
  EXPECT_EQ(timing.look(end + OverlayTiming::kFade).title, 0);
  EXPECT_EQ(timing.nextChange(kStart), end + 1) << "one timer until it fades";
  int steps = 0;
  for (auto now = timing.nextChange(kStart); now; now = timing.nextChange(*now)) ++steps;
  EXPECT_GE(steps, 15);
  EXPECT_LE(steps, 25);
  EXPECT_EQ(timing.look(kStart).times, 0) << "times are for seeks";
}

TEST(OverlayTiming, ASeekShowsTheTimesToo) {
  OverlayTiming timing;
  timing.noteSeek(kStart);
  EXPECT_EQ(timing.look(kStart).times, 1);
  EXPECT_EQ(timing.look(kStart).title, 1);
}

TEST(OverlayTiming, TheVolumeIsShownAlone) {
  OverlayTiming timing;
  timing.noteVolume(kStart);
  EXPECT_EQ(timing.look(kStart).volume, 1);
  EXPECT_EQ(timing.look(kStart).title, 0);
  EXPECT_EQ(timing.look(kStart + OverlayTiming::kVolumeShown + OverlayTiming::kFade).volume, 0);
}

TEST(OverlayTiming, WhilePausedItStaysWithoutATimer) {
  OverlayTiming timing;
  timing.setPaused(true, kStart);
  const int64_t later = kStart + 60'000 * kMillisecond;
  EXPECT_EQ(timing.look(later).pause, 1);
  EXPECT_EQ(timing.look(later).title, 1);
  EXPECT_FALSE(timing.nextChange(later).has_value());
  timing.setPaused(false, later);
  EXPECT_EQ(timing.look(later + OverlayTiming::kFade).pause, 0);
}

TEST(OverlayTiming, TheSpinnerComesAfterThreeTenthsOfASecondAndTurnsOnceASecond) {
  OverlayTiming timing;
  timing.setWaiting(true, kStart);
  timing.setWaiting(true, kStart + 200 * kMillisecond);
  EXPECT_EQ(timing.look(kStart + 299 * kMillisecond).spinner, 0);
  EXPECT_EQ(timing.nextChange(kStart), kStart + 300 * kMillisecond);
  EXPECT_EQ(timing.look(kStart + 300 * kMillisecond).spinner, 1);
  const int step = timing.look(kStart + 500 * kMillisecond).spinnerStep;
  EXPECT_NE(timing.look(kStart + 600 * kMillisecond).spinnerStep, step);
  EXPECT_EQ(timing.look(kStart + 1500 * kMillisecond).spinnerStep, step);
  EXPECT_LE(*timing.nextChange(kStart + 500 * kMillisecond), kStart + 600 * kMillisecond);
  timing.setWaiting(false, kStart + 700 * kMillisecond);
  EXPECT_TRUE(timing.look(kStart + 700 * kMillisecond).isNothing());
}

TEST(OverlayTiming, APausedVideoThatHasNoPictureYetShowsTheSpinnerAlone) {
  OverlayTiming timing;
  timing.setPaused(true, kStart);
  timing.setWaiting(true, kStart);
  EXPECT_EQ(timing.look(kStart + 400 * kMillisecond).pause, 0);
  EXPECT_EQ(timing.look(kStart + 400 * kMillisecond).spinner, 1);
}

}  // namespace
}  // namespace zaffo::feed
