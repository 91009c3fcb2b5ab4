// SPDX-License-Identifier: Apache-2.0
#include "feed/FeedInput.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "doubles/ManualTime.h"

namespace zaffo::feed {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Type = InputEvent::Type;
using enum Action;

class FeedInputTest : public testing::Test {
 protected:
  FeedInputTest()
      : view(FeedView::create(4)),
        input(view, {[this](Action action) { asked.push_back(action); },
                     [](CGPoint place) { return place.y > 690; },
                     [this](FeedInput::Phase phase, double x) {
                       scrubs.push_back({phase, x});
                     }}) {
    view->setFrame({{0, 0}, {400, 700}});
    view->layoutIfNeeded();
  }

  void press(const std::string& key, bool isRepeated = false, bool withShift = false) {
    InputEvent event;
    event.type = Type::KeyDown;
    event.key = key;
    event.isRepeated = isRepeated;
    event.withShift = withShift;
    input.handle(event);
  }
  void turnWheel(double notches, bool withControl = false) {
    InputEvent event;
    event.type = Type::Wheel;
    event.wheelY = notches;
    event.withControl = withControl;
    input.handle(event);
  }
  void point(Type type, double x, double y) {
    InputEvent event;
    event.type = type;
    event.position = {x, y};
    input.handle(event);
  }
  void click(double x, double y) {
    point(Type::PointerDown, x, y);
    time.advance(50 * kNanosecondsPerMillisecond);
    point(Type::PointerUp, x, y);
  }

  ManualTime time;
  std::shared_ptr<FeedView> view;
  std::vector<Action> asked;
  std::vector<std::pair<FeedInput::Phase, double>> scrubs;
  FeedInput input;
};

TEST_F(FeedInputTest, KeysAskForWhatTheBindingsSay) {
  for (const char* key : {"Down", "PageDown", "J", "Up", "PageUp", "K", "Home", "End", "Space"})
    press(key);
  EXPECT_THAT(asked, ElementsAre(NextPage, NextPage, NextPage, PreviousPage, PreviousPage,
                                 PreviousPage, FirstPage, LastPage, TogglePlaying));
  asked.clear();
  for (const char* key : {"Right", "Left", "M", "0", "9", "F", "F11", "I", "Escape", "Q"})
    press(key);
  EXPECT_THAT(asked, ElementsAre(SeekForward, SeekBack, ToggleMute, Louder, Quieter,
                                 ToggleFullScreen, ToggleFullScreen, TogglePool, Leave, Quit));
}

TEST_F(FeedInputTest, OtherKeysDoNothing) {
  for (const char* key : {"X", "", "wheel", "Drag", "/"}) press(key);
  EXPECT_THAT(asked, IsEmpty());
}

TEST_F(FeedInputTest, AQuestionMarkIsKnownOnKeyboardsOfMoreLanguagesThanOne) {
  press("?");
  for (const char* key : {"/", "ß", ",", "'", "+"}) press(key, false, true);
  EXPECT_EQ(asked, std::vector<Action>(6, ToggleKeys));
}

TEST_F(FeedInputTest, AKeyThatIsHeldRepeatsStepsButNoSwitch) {
  press("F", true);
  press("Space", true);
  EXPECT_THAT(asked, IsEmpty());
  press("Right", true);
  press("Down", true);
  EXPECT_THAT(asked, ElementsAre(SeekForward, NextPage));
}

TEST_F(FeedInputTest, ANotchOfTheWheelTurnsAPage) {
  turnWheel(1);
  turnWheel(-1);
  EXPECT_THAT(asked, ElementsAre(NextPage, PreviousPage));
}

TEST_F(FeedInputTest, WithControlTheWheelChangesTheVolume) {
  turnWheel(-1, true);
  turnWheel(1, true);
  EXPECT_THAT(asked, ElementsAre(Louder, Quieter));
}

TEST_F(FeedInputTest, SmallTurnsOfATouchpadAddUp) {
  turnWheel(0.4);
  turnWheel(0.4);
  EXPECT_THAT(asked, IsEmpty());
  turnWheel(0.4, true);
  EXPECT_THAT(asked, IsEmpty()) << "what was turned without the key is not the volume's";
  turnWheel(0.4);
  turnWheel(0.8);
  EXPECT_THAT(asked, ElementsAre(NextPage));
}

TEST_F(FeedInputTest, TheWheelTurnsOnePageAGlide) {
  view->scrollToPage(1);
  turnWheel(1);
  turnWheel(1);
  EXPECT_THAT(asked, IsEmpty());
}

TEST_F(FeedInputTest, APointerDragsThePages) {
  point(Type::PointerDown, 10, 600);
  time.advance(200 * kNanosecondsPerMillisecond);
  point(Type::PointerMove, 10, 100);
  EXPECT_EQ(view->offset(), 500);
  point(Type::PointerUp, 10, 100);
  EXPECT_EQ(view->page(), 1);
  EXPECT_THAT(asked, IsEmpty()) << "no click";
}

TEST_F(FeedInputTest, AClickPausesAlsoByAFingerThatIsNotQuiteStill) {
  point(Type::PointerDown, 100, 300);
  point(Type::PointerMove, 103, 304);
  EXPECT_EQ(view->offset(), 0);
  point(Type::PointerUp, 103, 304);
  EXPECT_THAT(asked, ElementsAre(TogglePlaying));
}

TEST_F(FeedInputTest, ASecondClickTakesTheFirstBackAndFillsTheScreen) {
  click(100, 300);
  click(105, 300);
  EXPECT_THAT(asked, ElementsAre(TogglePlaying, TogglePlaying, ToggleFullScreen));
  click(100, 300);
  EXPECT_EQ(asked.back(), TogglePlaying) << "a third click is the first of two again";
}

TEST_F(FeedInputTest, TwoClicksThatAreFarApartAreTwoClicks) {
  click(100, 300);
  click(300, 300);
  time.advance(kNanosecondsPerSecond);
  click(300, 300);
  EXPECT_THAT(asked, ElementsAre(TogglePlaying, TogglePlaying, TogglePlaying));
}

TEST_F(FeedInputTest, APressThatIsLongOrStopsAGlideIsNoClick) {
  point(Type::PointerDown, 100, 300);
  time.advance(kNanosecondsPerSecond);
  point(Type::PointerUp, 100, 300);
  view->scrollToPage(1);
  click(100, 300);
  EXPECT_THAT(asked, IsEmpty());
}

TEST_F(FeedInputTest, ADragThatBeginsOnTheBarScrubs) {
  point(Type::PointerDown, 50, 695);
  point(Type::PointerMove, 120, 500);
  point(Type::PointerUp, 200, 695);
  using Phase = FeedInput::Phase;
  EXPECT_THAT(scrubs, ElementsAre(std::pair(Phase::Begin, 50.0), std::pair(Phase::Move, 120.0),
                                  std::pair(Phase::End, 200.0)));
  EXPECT_EQ(view->offset(), 0);
  EXPECT_THAT(asked, IsEmpty());
}

TEST_F(FeedInputTest, MovesAndReleasesWithoutAPressDoNothing) {
  point(Type::PointerMove, 10, 100);
  point(Type::PointerHover, 10, 200);
  point(Type::PointerUp, 10, 100);
  EXPECT_THAT(asked, IsEmpty());
  EXPECT_FALSE(view->isMoving());
}

}  // namespace
}  // namespace zaffo::feed
