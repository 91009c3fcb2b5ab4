// SPDX-License-Identifier: Apache-2.0
#include "feed/PlaybackControl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/feed/RecordingPreloader.h"
#include "doubles/ManualTime.h"

namespace zaffo::feed {
namespace {

using testing::ElementsAre;

/// A page with a clip of ten seconds whose seeks end when a test says.
class SeekingCell final : public FeedCell {
 public:
  std::shared_ptr<UIView> view() const override { return view_; }
  void loadThumbnail() override {}
  void load() override {}
  void unload() override {}
  bool isSettled() const override { return true; }
  void setSettledHandler(std::function<void()>) override {}
  void checkPlayer() override {}
  void becomeCurrent(std::shared_ptr<Swipe>, float) override {}
  void resignCurrent() override {}
  void scrollingEnded() override {}
  void didPresent(int64_t) override {}
  bool isShown() const override { return true; }
  void setRate(float) override {}
  float rate() const override { return 1; }
  void togglePlaying() override {}
  void setHeld(bool isHeld) override { held = isHeld; }
  bool isPlaying() const override { return !held; }
  std::optional<ClipPosition> position() const override { return ClipPosition{1, 10, 0}; }
  void updateRecord() override {}
  void setVolume(float) override {}
  void seek(CMTime time, std::function<void()> completion) override {
    sought.push_back(CMTimeGetSeconds(time));
    // A newer one ends the one before it.
    if (const auto before = std::exchange(completion_, std::move(completion))) before();
  }
  bool showsFrameNearBy() const override { return showsNearBy; }

  void endSeek() {
    if (const auto completion = std::exchange(completion_, nullptr)) completion();
  }

  bool held = false;
  bool showsNearBy = true;
  std::vector<double> sought;

 private:
  const std::shared_ptr<UIView> view_ = UIView::create();
  std::function<void()> completion_;
};

class PlaybackControlTest : public testing::Test {
 protected:
  PlaybackControlTest() {
    view->setFrame({{0, 0}, {400, 700}});
    view->layoutIfNeeded();
    const auto address = [](int page) {
      return NSURL::URLWithString("http://a.example/" + std::to_string(page));
    };
    controller = FeedController::create(
        {manager, view, std::make_shared<Statistics>(),
         [](int page) { return "video " + std::to_string(page); },
         [this](int page) { return page == 0 ? cell : std::make_shared<SeekingCell>(); },
         std::make_shared<PagePreloads>(preloader, address)});
    controller->start();
    time.settle();
    control = PlaybackControl::create(controller);
  }
  ~PlaybackControlTest() override { time.settle(); }

  void endSeek() {
    cell->endSeek();
    time.settle();
  }
  void pass(int64_t milliseconds) { time.advance(milliseconds * kNanosecondsPerMillisecond); }

  ManualTime time;
  RecordingPreloader preloader;
  std::shared_ptr<PlayerManager> manager = PlayerManager::create();
  std::shared_ptr<FeedView> view = FeedView::create(20);
  const std::shared_ptr<SeekingCell> cell = std::make_shared<SeekingCell>();
  std::shared_ptr<FeedController> controller;
  std::shared_ptr<PlaybackControl> control;
};

TEST_F(PlaybackControlTest, OfAQuickRowOfScrubsTheLastIsSoughtWhenTheFirstIsThere) {
  for (const double fraction : {0.2, 0.3, 0.4}) control->scrub(fraction);
  EXPECT_TRUE(cell->held);
  EXPECT_THAT(cell->sought, ElementsAre(2));
  EXPECT_EQ(control->position()->time, 4);
  endSeek();
  EXPECT_THAT(cell->sought, ElementsAre(2, 4));
  endSeek();
  EXPECT_FALSE(control->isSeeking());
  control->endScrub();
  EXPECT_FALSE(cell->held);
}

TEST_F(PlaybackControlTest, ASeekThatTakesLongGivesWayToTheNext) {
  control->scrub(0.2);
  pass(20);
  control->scrub(0.3);
  pass(19);
  EXPECT_THAT(cell->sought, ElementsAre(2));
  control->scrub(0.4);
  pass(1);
  EXPECT_THAT(cell->sought, ElementsAre(2, 4));
  EXPECT_TRUE(control->isSeeking()) << "the end of the first is not that of the second";
  EXPECT_EQ(control->position()->time, 4);
  pass(1000);
  EXPECT_THAT(cell->sought, ElementsAre(2, 4)) << "the last one takes its time";
  control->scrub(0.5);
  pass(0);
  EXPECT_THAT(cell->sought, ElementsAre(2, 4, 5)) << "it was long already";
  endSeek();
  EXPECT_FALSE(control->isSeeking());
}

TEST_F(PlaybackControlTest, NotWhereThePlayerShowsNothingMeanwhile) {
  cell->showsNearBy = false;
  control->scrub(0.2);
  control->scrub(0.3);
  pass(1000);
  EXPECT_THAT(cell->sought, ElementsAre(2));
  endSeek();
  EXPECT_THAT(cell->sought, ElementsAre(2, 3));
}

TEST_F(PlaybackControlTest, AnotherPageHasNothingToDoWithTheSeeksOfTheLast) {
  control->scrub(0.2);
  control->scrub(0.3);
  control->pageChanged();
  pass(1000);
  EXPECT_THAT(cell->sought, ElementsAre(2));
  EXPECT_FALSE(control->isSeeking());
}

}  // namespace
}  // namespace zaffo::feed
