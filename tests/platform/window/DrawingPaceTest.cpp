// SPDX-License-Identifier: Apache-2.0
#include "PixelBuffers.h"
#include "WindowTestSupport.h"
#include "doubles/ManualTime.h"
#include "platform/window/FramePacer.h"

namespace zaffo {
namespace {

using window::FramePacer;

/// A window at 50 pictures a second whose time a test moves by hand.
class DrawingPace : public testing::Test {
 protected:
  /// Runs everything due now; the render thread, which no clock stops, may take its time.
  void waitForPictures(uint64_t count) {
    ASSERT_TRUE(waitUntil([&] { return window->presentedPictures() >= count; }));
    time.settle();
    EXPECT_EQ(window->presentedPictures(), count);
  }
  void change() { window->rootView()->layer()->setNeedsDisplay(); }

  static constexpr int64_t kInterval = 20 * kNanosecondsPerMillisecond;
  ManualTime time;
  std::shared_ptr<Window> window = makeOffscreenWindow({8, 8}, 50);
};

TEST_F(DrawingPace, DrawsOnceAtFirstAndThenNothingWhileNothingChanges) {
  waitForPictures(1);
  time.advance(kNanosecondsPerSecond);
  EXPECT_EQ(window->presentedPictures(), 1u);
}

TEST_F(DrawingPace, LeavesNoTimerBehindWhenNothingChanges) {
  waitForPictures(1);
  EXPECT_EQ(MainLoop::runTurn(), 0);
}

TEST_F(DrawingPace, DrawsAChangeAtOnceWhenTheLastPictureIsOld) {
  waitForPictures(1);
  time.advance(kInterval);
  change();
  waitForPictures(2);
}

TEST_F(DrawingPace, MergesChangesIntoOnePicturePerInterval) {
  waitForPictures(1);
  for (int n = 0; n < 10; ++n) change();
  time.settle();
  EXPECT_EQ(window->presentedPictures(), 1u);
  time.advance(kInterval - 1);
  EXPECT_EQ(window->presentedPictures(), 1u);
  time.advance(1);
  waitForPictures(2);
}

TEST_F(DrawingPace, DrawsWhatChangedWhileAPictureWasDrawn) {
  auto layer = TestLayer::create();
  layer->setFrame({{0, 0}, {8, 8}});
  layer->script = [&](int64_t) -> std::optional<LayerPicture> {
    if (layer->askedAt.size() == 1) layer->setNeedsDisplay();
    return std::nullopt;
  };
  window->rootView()->layer()->addSublayer(layer);
  waitForPictures(1);
  time.advance(kInterval);
  waitForPictures(2);
  time.advance(kInterval);
  EXPECT_EQ(window->presentedPictures(), 2u);
}

TEST_F(DrawingPace, KeepsToItsPaceWhileEveryPictureAsksForTheNext) {
  window->setPresentHandler([&](int64_t) { change(); });
  for (uint64_t n = 1; n <= 50; ++n) {
    waitForPictures(n);
    time.advance(kInterval);
  }
}

TEST_F(DrawingPace, AsksForPicturesAtTheTimeTheListIsMade) {
  auto layer = TestLayer::create();
  layer->setFrame({{0, 0}, {8, 8}});
  window->rootView()->layer()->addSublayer(layer);
  waitForPictures(1);
  ASSERT_EQ(layer->askedAt.size(), 1u);
  EXPECT_EQ(layer->askedAt[0], time.nanoseconds());
}

class PlannedPictures : public DrawingPace {
 protected:
  /// A layer that knows one change of its picture, so many nanoseconds from now.
  void addLayer(int64_t span) {
    layer = TestLayer::create();
    layer->setFrame({{0, 0}, {8, 8}});
    layer->show(makeQuarters(8, 8));
    layer->plan = [due = TimeSource::now() + span]() -> std::optional<int64_t> {
      return TimeSource::now() < due ? std::optional(due) : std::nullopt;
    };
    window->rootView()->layer()->addSublayer(layer);
    waitForPictures(1);
  }
  std::shared_ptr<TestLayer> layer;
};

TEST_F(PlannedPictures, AreDrawnWhenTheyAreDueWithoutBeingAskedFor) {
  addLayer(3 * kInterval);
  time.advance(3 * kInterval - 1);
  EXPECT_EQ(window->presentedPictures(), 1u);
  time.advance(1);
  waitForPictures(2);
  EXPECT_EQ(layer->askedAt.back(), time.nanoseconds());
  time.advance(kNanosecondsPerSecond);
  EXPECT_EQ(window->presentedPictures(), 2u) << "it knows no other";
}

TEST_F(PlannedPictures, KeepToThePaceOfTheWindow) {
  addLayer(kInterval / 2);
  time.advance(kInterval - 1);
  EXPECT_EQ(window->presentedPictures(), 1u);
  time.advance(1);
  waitForPictures(2);
}

TEST_F(PlannedPictures, ThatAreNotSeenAnyMoreAreNotDrawn) {
  addLayer(3 * kInterval);
  layer->setHidden(true);
  time.advance(kInterval);
  waitForPictures(2);
  time.advance(3 * kInterval);
  EXPECT_EQ(window->presentedPictures(), 2u);
}

TEST(FramePacer, AllowsTheFirstPictureAtOnceAndTheNextOneIntervalLater) {
  FramePacer pacer(10);
  EXPECT_EQ(pacer.delay(1000), 0);
  pacer.made(1000);
  EXPECT_EQ(pacer.delay(1000), 10);
  EXPECT_EQ(pacer.delay(1004), 6);
  EXPECT_EQ(pacer.delay(1010), 0);
}

TEST(FramePacer, MakesUpForLateWakeUps) {
  FramePacer pacer(10);
  pacer.made(1000);
  pacer.made(1013);
  EXPECT_EQ(pacer.delay(1013), 7);
}

TEST(FramePacer, StartsAnewAfterAPause) {
  FramePacer pacer(10);
  pacer.made(1000);
  pacer.made(1025);
  EXPECT_EQ(pacer.delay(1025), 10);
}

}  // namespace
}  // namespace zaffo
