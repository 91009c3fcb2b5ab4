// SPDX-License-Identifier: Apache-2.0
#include "feed/FeedView.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "doubles/ManualTime.h"

namespace zaffo::feed {
namespace {

using testing::ElementsAre;

class FeedViewTest : public testing::Test {
 protected:
  FeedViewTest() : view(FeedView::create(4)) {
    view->setFrame({{0, 0}, {400, 700}});
    for (int page = 0; page < 4; ++page) {
      pages.push_back(UIView::create());
      view->placePage(page, pages.back());
    }
    view->layoutIfNeeded();
    view->setPageHandler([this](int page) { turnedTo.push_back(page); });
    view->setRestHandler([this] { ++rests; });
  }

  /// A third of a second and more of a window that puts a picture on screen whenever it is to.
  void rest() {
    for (int picture = 0; picture < 40; ++picture) {
      time.advance(kNanosecondsPerSecond / 60);
      view->pictureShown();
    }
  }

  ManualTime time;
  std::shared_ptr<FeedView> view;
  std::vector<std::shared_ptr<UIView>> pages;
  std::vector<int> turnedTo;
  int rests = 0;
};

TEST_F(FeedViewTest, PagesStandBelowEachOther) {
  EXPECT_EQ(pages[0]->frame(), CGRectMake(0, 0, 400, 700));
  EXPECT_EQ(pages[2]->frame(), CGRectMake(0, 1400, 400, 700));
}

TEST_F(FeedViewTest, TurningAPageShowsItAtOnceAndGlidesThere) {
  view->scrollToPage(1);
  EXPECT_THAT(turnedTo, ElementsAre(1));
  EXPECT_LT(pages[1]->frame().origin.y, 700);
  EXPECT_GT(pages[1]->frame().origin.y, 350);
  EXPECT_EQ(rests, 0);
  rest();
  EXPECT_EQ(pages[1]->frame(), CGRectMake(0, 0, 400, 700));
  EXPECT_EQ(pages[0]->frame().origin.y, -700);
  EXPECT_EQ(rests, 1);
}

TEST_F(FeedViewTest, AGlideAsksForThePicturesItNeedsAndARestForNone) {
  view->scrollToPage(1);
  const auto drawn = std::make_shared<int>(0);
  view->layer()->setDisplayRequestHandler([drawn] { ++*drawn; });
  for (int picture = 0; view->isGliding(); ++picture) {
    ASSERT_LT(picture, 200);
    const int before = *drawn;
    // Even one that comes at the same time as the last: nobody else would ask again.
    if (picture % 2 == 0) time.advance(kNanosecondsPerSecond / 120);
    view->pictureShown();
    EXPECT_GT(*drawn, before);
  }
  *drawn = 0;
  rest();
  EXPECT_EQ(*drawn, 0);
  view->layer()->setDisplayRequestHandler({});
}

TEST_F(FeedViewTest, MorePagesComeAtTheEnd) {
  view->setPageCount(6);
  view->scrollToPage(5);
  EXPECT_EQ(view->page(), 5);
  EXPECT_THAT(turnedTo, ElementsAre(5));
}

TEST_F(FeedViewTest, StartsOnAPageWithoutGlidingOrTelling) {
  view->startAt(2);
  EXPECT_EQ(pages[2]->frame().origin.y, 0);
  EXPECT_FALSE(view->isMoving());
  EXPECT_TRUE(turnedTo.empty());
}

TEST_F(FeedViewTest, ADragMovesThePagesAndLettingGoTurnsOne) {
  view->beginDrag(600);
  time.advance(100 * kNanosecondsPerMillisecond);
  view->drag(200);
  EXPECT_EQ(pages[1]->frame().origin.y, 300);
  EXPECT_TRUE(turnedTo.empty());
  view->endDrag();
  EXPECT_THAT(turnedTo, ElementsAre(1));
  rest();
  EXPECT_EQ(view->offset(), 700);
  EXPECT_EQ(rests, 1);
}

TEST_F(FeedViewTest, ANewSizeKeepsThePageInView) {
  view->scrollToPage(2);
  rest();
  view->setFrame({{0, 0}, {200, 300}});
  view->layoutIfNeeded();
  EXPECT_EQ(pages[2]->frame(), CGRectMake(0, 0, 200, 300));
  EXPECT_THAT(turnedTo, ElementsAre(2));
}

TEST_F(FeedViewTest, APageThatIsTakenOutIsNoLongerShown) {
  view->removePage(1);
  EXPECT_EQ(pages[1]->superview(), nullptr);
  view->removePage(1);
  EXPECT_EQ(view->subviews().size(), 3u);
}

}  // namespace
}  // namespace zaffo::feed
