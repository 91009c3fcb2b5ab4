// SPDX-License-Identifier: Apache-2.0
#include "feed/PageScroll.h"

#include <gtest/gtest.h>

namespace zaffo::feed {
namespace {

constexpr int64_t kMillisecond = 1'000'000;
constexpr double kHeight = 700;

PageScroll fivePages() {
  PageScroll scroll;
  scroll.setPages(5, kHeight);
  return scroll;
}

/// A finger that moves from `from` to `to` within 200 ms and rests before it is lifted, or not.
int dragged(PageScroll& scroll, double from, double to, bool rests) {
  scroll.beginDrag(from, 0);
  for (int step = 1; step <= 10; ++step)
    scroll.drag(from + (to - from) * step / 10, step * 20 * kMillisecond);
  scroll.endDrag((rests ? 400 : 201) * kMillisecond);
  return scroll.page();
}

TEST(PageScroll, RestsOnTheFirstPageAtTheStart) {
  const PageScroll scroll = fivePages();
  EXPECT_EQ(scroll.page(), 0);
  EXPECT_EQ(scroll.offset(), 0);
  EXPECT_FALSE(scroll.isMoving());
}

TEST(PageScroll, GlidesToAPageAndStopsExactlyThere) {
  PageScroll scroll = fivePages();
  scroll.glideTo(1, 0);
  EXPECT_EQ(scroll.page(), 1);
  EXPECT_EQ(scroll.offset(), 0);
  double last = 0;
  for (int64_t now = 10; now < 300; now += 10) {
    scroll.advance(now * kMillisecond);
    EXPECT_GT(scroll.offset(), last);
    EXPECT_LT(scroll.offset(), kHeight);
    last = scroll.offset();
  }
  scroll.advance(450 * kMillisecond);
  EXPECT_EQ(scroll.offset(), kHeight);
  EXPECT_FALSE(scroll.isMoving());
}

TEST(PageScroll, AGlideIsQuickAtFirst) {
  PageScroll scroll = fivePages();
  scroll.glideTo(1, 0);
  scroll.advance(125 * kMillisecond);
  EXPECT_GT(scroll.offset(), kHeight * 3 / 4);
}

TEST(PageScroll, PagesThatDoNotExistMeanTheNearestOne) {
  PageScroll scroll = fivePages();
  scroll.glideTo(-1, 0);
  EXPECT_EQ(scroll.page(), 0);
  EXPECT_FALSE(scroll.isMoving());
  scroll.glideTo(9, 0);
  EXPECT_EQ(scroll.page(), 4);
}

TEST(PageScroll, AFarPageComesFromNextDoor) {
  PageScroll scroll = fivePages();
  scroll.glideTo(4, 0);
  EXPECT_EQ(scroll.offset(), 3 * kHeight);
  scroll.advance(250 * kMillisecond);
  scroll.glideTo(0, 250 * kMillisecond);
  EXPECT_EQ(scroll.offset(), kHeight);
}

TEST(PageScroll, AGlideChangesItsMindFromWhereItIs) {
  PageScroll scroll = fivePages();
  scroll.glideTo(1, 0);
  scroll.advance(50 * kMillisecond);
  const double offset = scroll.offset();
  scroll.glideTo(0, 50 * kMillisecond);
  EXPECT_EQ(scroll.offset(), offset);
  scroll.advance(600 * kMillisecond);
  EXPECT_EQ(scroll.offset(), 0);
}

TEST(PageScroll, AGlideTakesTheSameWayAtEveryPaceOfTheDisplay) {
  for (const bool flicked : {false, true}) {
    PageScroll at60 = fivePages(), at120 = fivePages();
    for (PageScroll* scroll : {&at60, &at120}) {
      if (flicked) {
        dragged(*scroll, 600, 300, false);
      } else {
        scroll->glideTo(1, 201 * kMillisecond);
      }
    }
    int pictures = 0;
    for (int64_t frame = 1; at60.isGliding(); ++frame, ++pictures) {
      const int64_t now = 201 * kMillisecond + frame * 1'000'000'000 / 60;
      at60.advance(now);
      at120.advance(now - 1'000'000'000 / 120);
      at120.advance(now);
      EXPECT_DOUBLE_EQ(at120.offset(), at60.offset());
    }
    EXPECT_FALSE(at120.isGliding());
    EXPECT_GT(pictures, 12);
    EXPECT_LT(pictures, 30);
  }
}

TEST(PageScroll, AFlickGoesOnAtTheSpeedOfTheFinger) {
  PageScroll scroll = fivePages();
  scroll.beginDrag(600, 0);
  for (int step = 1; step <= 10; ++step) scroll.drag(600 - 20 * step, step * 10 * kMillisecond);
  const double released = scroll.offset();
  scroll.endDrag(100 * kMillisecond);
  scroll.advance(101 * kMillisecond);
  EXPECT_NEAR(scroll.offset() - released, 2, 0.5) << "2000 points a second";
}

TEST(PageScroll, HoweverHardAFlickItDoesNotGoBeyondThePage) {
  PageScroll scroll = fivePages();
  scroll.beginDrag(700, 0);
  scroll.drag(600, 2 * kMillisecond);
  scroll.drag(100, 4 * kMillisecond);
  scroll.endDrag(5 * kMillisecond);
  ASSERT_EQ(scroll.page(), 1);
  double last = scroll.offset();
  for (int64_t now = 6; scroll.isGliding(); ++now) {
    scroll.advance(now * kMillisecond);
    EXPECT_GE(scroll.offset(), last);
    EXPECT_LE(scroll.offset(), kHeight);
    last = scroll.offset();
  }
}

TEST(PageScroll, AGlideThatIsToldAnotherPageKeepsItsSpeed) {
  PageScroll scroll = fivePages();
  scroll.glideTo(1, 0);
  scroll.advance(60 * kMillisecond);
  const double before = scroll.offset();
  scroll.advance(61 * kMillisecond);
  const double speed = scroll.offset() - before;
  scroll.glideTo(2, 61 * kMillisecond);
  const double turned = scroll.offset();
  scroll.advance(62 * kMillisecond);
  EXPECT_NEAR(scroll.offset() - turned, speed, 0.3 * speed);
}

TEST(PageScroll, MorePagesLeaveAGlideAlone) {
  PageScroll scroll = fivePages();
  scroll.glideTo(4, 0);
  scroll.advance(50 * kMillisecond);
  scroll.setCount(6);
  EXPECT_TRUE(scroll.isGliding());
  scroll.glideTo(9, 60 * kMillisecond);
  EXPECT_EQ(scroll.page(), 5);
}

TEST(PageScroll, StartsOnThePageThatItIsTold) {
  PageScroll scroll = fivePages();
  scroll.setPage(3);
  EXPECT_EQ(scroll.offset(), 3 * kHeight);
  EXPECT_FALSE(scroll.isMoving());
  scroll.setPage(7);
  EXPECT_EQ(scroll.page(), 4);
}

TEST(PageScroll, ADragFollowsTheFinger) {
  PageScroll scroll = fivePages();
  scroll.beginDrag(600, 0);
  scroll.drag(450, 100 * kMillisecond);
  EXPECT_EQ(scroll.offset(), 150);
  EXPECT_TRUE(scroll.isDragging());
  EXPECT_EQ(scroll.page(), 0);
}

TEST(PageScroll, MoreThanHalfAPageSnapsToTheNextOne) {
  PageScroll scroll = fivePages();
  EXPECT_EQ(dragged(scroll, 600, 240, true), 1);
  EXPECT_TRUE(scroll.isGliding());
}

TEST(PageScroll, LessThanHalfAPageSnapsBack) {
  PageScroll scroll = fivePages();
  EXPECT_EQ(dragged(scroll, 600, 260, true), 0);
  scroll.advance(1000 * kMillisecond);
  EXPECT_EQ(scroll.offset(), 0);
}

TEST(PageScroll, AShortFlickTurnsThePage) {
  PageScroll scroll = fivePages();
  EXPECT_EQ(dragged(scroll, 600, 500, false), 1);
  scroll.advance(1000 * kMillisecond);
  EXPECT_EQ(dragged(scroll, 500, 600, false), 0);
}

TEST(PageScroll, ASlowShortDragDoesNotFlick) {
  PageScroll scroll = fivePages();
  EXPECT_EQ(dragged(scroll, 600, 550, false), 0);
}

TEST(PageScroll, ADragTurnsOnePageAtMost) {
  PageScroll scroll = fivePages();
  scroll.beginDrag(5000, 0);
  scroll.drag(0, 20 * kMillisecond);
  EXPECT_EQ(scroll.offset(), kHeight);
  scroll.endDrag(21 * kMillisecond);
  EXPECT_EQ(scroll.page(), 1);
}

TEST(PageScroll, BeyondTheFirstPageADragPullsLess) {
  PageScroll scroll = fivePages();
  scroll.beginDrag(100, 0);
  scroll.drag(400, 100 * kMillisecond);
  EXPECT_EQ(scroll.offset(), -100);
  scroll.endDrag(500 * kMillisecond);
  EXPECT_EQ(scroll.page(), 0);
  scroll.advance(1000 * kMillisecond);
  EXPECT_EQ(scroll.offset(), 0);
}

TEST(PageScroll, AFlickBeyondTheLastPageStaysOnIt) {
  PageScroll scroll = fivePages();
  scroll.glideTo(4, 0);
  scroll.advance(1000 * kMillisecond);
  EXPECT_EQ(dragged(scroll, 600, 300, false), 4);
}

TEST(PageScroll, ATouchStopsAGlide) {
  PageScroll scroll = fivePages();
  scroll.glideTo(1, 0);
  scroll.advance(50 * kMillisecond);
  const double offset = scroll.offset();
  scroll.beginDrag(300, 50 * kMillisecond);
  scroll.advance(200 * kMillisecond);
  EXPECT_EQ(scroll.offset(), offset);
}

TEST(PageScroll, MovesWithoutATouchBeforeThemDoNothing) {
  PageScroll scroll = fivePages();
  scroll.drag(10, 0);
  scroll.endDrag(0);
  EXPECT_EQ(scroll.offset(), 0);
  EXPECT_FALSE(scroll.isMoving());
}

TEST(PageScroll, ANewHeightKeepsThePage) {
  PageScroll scroll = fivePages();
  scroll.glideTo(2, 0);
  scroll.setPages(5, 300);
  EXPECT_EQ(scroll.page(), 2);
  EXPECT_EQ(scroll.offset(), 600);
  EXPECT_FALSE(scroll.isMoving());
}

TEST(PageScroll, AnEmptyFeedStaysWhereItIs) {
  PageScroll scroll;
  scroll.setPages(0, 0);
  scroll.glideTo(1, 0);
  EXPECT_EQ(scroll.page(), 0);
  EXPECT_EQ(scroll.offset(), 0);
}

}  // namespace
}  // namespace zaffo::feed
