#include "feed/FeedView.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "doubles/ManualTime.h"
#include "feed/FeedInput.h"

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
  time.advance(300 * kNanosecondsPerMillisecond);
  EXPECT_EQ(pages[1]->frame(), CGRectMake(0, 0, 400, 700));
  EXPECT_EQ(pages[0]->frame().origin.y, -700);
  EXPECT_EQ(rests, 1);
}

TEST_F(FeedViewTest, TheTimerStopsWhenTheFeedRests) {
  view->scrollToPage(1);
  time.advance(300 * kNanosecondsPerMillisecond);
  const auto drawn = std::make_shared<bool>(false);
  view->layer()->setDisplayRequestHandler([drawn] { *drawn = true; });
  time.advance(kNanosecondsPerSecond);
  EXPECT_FALSE(*drawn);
}

TEST_F(FeedViewTest, ADragMovesThePagesAndLettingGoTurnsOne) {
  view->beginDrag(600);
  time.advance(100 * kNanosecondsPerMillisecond);
  view->drag(200);
  EXPECT_EQ(pages[1]->frame().origin.y, 300);
  EXPECT_TRUE(turnedTo.empty());
  view->endDrag();
  EXPECT_THAT(turnedTo, ElementsAre(1));
  time.advance(300 * kNanosecondsPerMillisecond);
  EXPECT_EQ(view->offset(), 700);
  EXPECT_EQ(rests, 1);
}

TEST_F(FeedViewTest, ANewSizeKeepsThePageInView) {
  view->scrollToPage(2);
  time.advance(300 * kNanosecondsPerMillisecond);
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

TEST_F(FeedViewTest, AViewThatIsGoneTicksNoMore) {
  view->scrollToPage(1);
  const std::weak_ptr<UIView> gone = view;
  view = nullptr;
  EXPECT_TRUE(gone.expired());
  time.advance(kNanosecondsPerSecond);
  EXPECT_EQ(rests, 0);
}

class FeedInputTest : public FeedViewTest {
 protected:
  FeedInputTest()
      : input(view, {[this] { ++toggles; }, [this] { ++resizes; }, [this] { ++quits; }}) {}

  void press(const std::string& key) {
    InputEvent event;
    event.type = InputEvent::Type::KeyDown;
    event.key = key;
    input.handle(event);
    rest();
  }
  void turnWheel(double notches) {
    InputEvent event;
    event.type = InputEvent::Type::Wheel;
    event.wheelY = notches;
    input.handle(event);
  }
  void point(InputEvent::Type type, double y) {
    InputEvent event;
    event.type = type;
    event.position = {10, y};
    input.handle(event);
  }
  void rest() { time.advance(300 * kNanosecondsPerMillisecond); }

  FeedInput input;
  int toggles = 0, resizes = 0, quits = 0;
};

TEST_F(FeedInputTest, KeysTurnPages) {
  for (const char* key : {"Down", "PageDown", "J", "Up", "PageUp", "K", "End", "Home"}) press(key);
  EXPECT_THAT(turnedTo, ElementsAre(1, 2, 3, 2, 1, 0, 3, 0));
}

TEST_F(FeedInputTest, KeysAtTheEndsOfTheFeedDoNothing) {
  press("Up");
  press("End");
  press("Down");
  EXPECT_THAT(turnedTo, ElementsAre(3));
}

TEST_F(FeedInputTest, SpacePlaysAndPauses) {
  press("Space");
  EXPECT_EQ(toggles, 1);
}

TEST_F(FeedInputTest, QEscapeAndClosingTheWindowEndTheProgram) {
  press("Q");
  press("Escape");
  point(InputEvent::Type::Close, 0);
  EXPECT_EQ(quits, 3);
}

TEST_F(FeedInputTest, OtherKeysDoNothing) {
  press("X");
  EXPECT_TRUE(turnedTo.empty());
  EXPECT_EQ(toggles + quits + resizes, 0);
}

TEST_F(FeedInputTest, ANewWindowSizeIsPassedOn) {
  point(InputEvent::Type::Resize, 0);
  EXPECT_EQ(resizes, 1);
}

TEST_F(FeedInputTest, ANotchOfTheWheelTurnsAPage) {
  turnWheel(1);
  rest();
  turnWheel(-1);
  EXPECT_THAT(turnedTo, ElementsAre(1, 0));
}

TEST_F(FeedInputTest, SmallTurnsOfATouchpadAddUp) {
  turnWheel(0.4);
  turnWheel(0.4);
  EXPECT_TRUE(turnedTo.empty());
  turnWheel(0.4);
  EXPECT_THAT(turnedTo, ElementsAre(1));
}

TEST_F(FeedInputTest, TheWheelTurnsOnePageAGlide) {
  turnWheel(1);
  turnWheel(1);
  turnWheel(1);
  EXPECT_THAT(turnedTo, ElementsAre(1));
}

TEST_F(FeedInputTest, APointerDragsThePages) {
  point(InputEvent::Type::PointerDown, 600);
  time.advance(200 * kNanosecondsPerMillisecond);
  point(InputEvent::Type::PointerMove, 100);
  EXPECT_EQ(view->offset(), 500);
  point(InputEvent::Type::PointerUp, 100);
  rest();
  EXPECT_EQ(view->page(), 1);
}

}  // namespace
}  // namespace zaffo::feed
