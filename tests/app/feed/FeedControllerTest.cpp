// SPDX-License-Identifier: Apache-2.0
#include "feed/FeedController.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "app/feed/RecordingPreloader.h"
#include "doubles/ManualTime.h"

namespace zaffo::feed {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

/// What all cells were told, in order: "load 3".
using Calls = std::vector<std::string>;

/// A cell whose load ends when a test says.
class RecordingCell final : public FeedCell {
 public:
  RecordingCell(int page, Calls& calls) : page_(page), calls_(calls) {}

  std::shared_ptr<UIView> view() const override { return view_; }
  void loadThumbnail() override { hasThumbnail = true; }
  void load() override {
    if (wanted) return;
    wanted = true;
    note("load");
  }
  void unload() override {
    if (wanted) note("unload");
    wanted = settled = false;
  }
  bool isSettled() const override { return settled; }
  void setSettledHandler(std::function<void()> handler) override { settled_ = std::move(handler); }
  void checkPlayer() override { note("check"); }
  void becomeCurrent(std::shared_ptr<Swipe> swipe, float volume) override {
    note("current");
    record = std::move(swipe);
    volumeValue = volume;
    load();
  }
  void resignCurrent() override {
    note("resign");
    record = nullptr;
  }
  void scrollingEnded() override { note("rest"); }
  void didPresent(int64_t) override { note("present"); }
  bool isShown() const override { return settled; }
  void setRate(float) override {}
  float rate() const override { return 1; }
  void togglePlaying() override {}
  void setHeld(bool isHeld) override { held = isHeld; }
  bool isPlaying() const override { return settled && !held; }
  std::optional<ClipPosition> position() const override { return std::nullopt; }
  void updateRecord() override {}
  void setVolume(float volume) override { volumeValue = volume; }
  void seek(CMTime, std::function<void()>) override {}

  void settle() {
    settled = true;
    settled_();
  }

  bool wanted = false;
  bool settled = false;
  bool hasThumbnail = false;
  bool held = false;
  float volumeValue = -1;
  std::shared_ptr<Swipe> record;

 private:
  void note(const char* what) { calls_.push_back(what + std::string(" ") + std::to_string(page_)); }

  const int page_;
  Calls& calls_;
  const std::shared_ptr<UIView> view_ = UIView::create();
  std::function<void()> settled_;
};

class FeedControllerTest : public testing::Test {
 protected:
  FeedControllerTest() {
    view->setFrame({{0, 0}, {400, 700}});
    view->layoutIfNeeded();
    controller = FeedController::create({manager, view, statistics,
                                         [](int page) { return "video " + std::to_string(page); },
                                         [this](int page) {
                                           auto cell = std::make_shared<RecordingCell>(page, calls);
                                           cells[page] = cell;
                                           return cell;
                                         },
                                         std::make_shared<PagePreloads>(preloader, addressOf)});
    view->setPageHandler([this](int page) { controller->showPage(page); });
  }

  static std::shared_ptr<const NSURL> addressOf(int page) {
    return NSURL::URLWithString("http://a.example/" + std::to_string(page));
  }

  std::shared_ptr<RecordingCell> cell(int page) { return cells[page].lock(); }

  void settle(int page) {
    cell(page)->settle();
    time.settle();
  }
  void turnTo(int page) {
    view->scrollToPage(page);
    time.settle();
  }
  /// The pages that hold a player or load one.
  std::set<int> wanted() {
    std::set<int> pages;
    for (const auto& [page, weak] : cells) {
      if (const auto it = weak.lock(); it && it->wanted) pages.insert(page);
    }
    return pages;
  }
  std::set<int> existing() {
    std::set<int> pages;
    for (const auto& [page, weak] : cells) {
      if (!weak.expired()) pages.insert(page);
    }
    return pages;
  }

  ManualTime time;
  RecordingPreloader preloader;
  std::shared_ptr<PlayerManager> manager = PlayerManager::create();
  std::shared_ptr<FeedView> view = FeedView::create(20);
  std::shared_ptr<Statistics> statistics = std::make_shared<Statistics>();
  Calls calls;
  std::map<int, std::weak_ptr<RecordingCell>> cells;
  std::shared_ptr<FeedController> controller;
};

TEST_F(FeedControllerTest, TheFirstPageIsLoadedAlone) {
  controller->start();
  time.settle();
  EXPECT_THAT(wanted(), ElementsAre(0));
}

TEST_F(FeedControllerTest, TheNeighboursFollowWhenThePageInViewIsLoaded) {
  controller->start();
  calls.clear();
  settle(0);
  EXPECT_THAT(calls, ElementsAre("load 1", "load 2"));
}

TEST_F(FeedControllerTest, NeighboursThatSettleStartNothingMore) {
  controller->start();
  settle(0);
  calls.clear();
  settle(1);
  settle(2);
  EXPECT_TRUE(calls.empty());
}

TEST_F(FeedControllerTest, TheNextTwoPagesAreFetchedWhenThePageInViewIsLoaded) {
  controller->start();
  time.settle();
  EXPECT_TRUE(preloader.calls.empty());
  settle(0);
  EXPECT_THAT(preloader.calls, ElementsAre("preload 1 1", "preload 2 0"));
  settle(1);
  EXPECT_EQ(preloader.calls.size(), 2u) << "once is enough";
}

TEST_F(FeedControllerTest, WhatTheSwipeLeavesIsFetchedNoMore) {
  controller->start();
  settle(0);
  turnTo(1);
  EXPECT_EQ(preloader.calls.size(), 2u) << "both are still ahead, or in view";
  settle(1);
  EXPECT_EQ(preloader.calls.back(), "preload 3 0");
  preloader.calls.clear();
  turnTo(0);
  EXPECT_THAT(preloader.calls, UnorderedElementsAre("cancel 1", "cancel 2", "cancel 3"));
}

TEST_F(FeedControllerTest, NothingIsFetchedAfterTheEnd) {
  controller->start();
  settle(0);
  controller->stop();
  EXPECT_THAT(preloader.calls, ElementsAre("preload 1 1", "preload 2 0", "cancel 1", "cancel 2"));
}

TEST_F(FeedControllerTest, NearPagesGetTheirThumbnails) {
  controller->start();
  settle(0);
  EXPECT_THAT(existing(), ElementsAre(0, 1, 2, 3));
  for (const int page : {1, 2, 3}) EXPECT_TRUE(cell(page)->hasThumbnail) << page;
  EXPECT_FALSE(cell(3)->wanted);
}

TEST_F(FeedControllerTest, TurningAPageStopsTheOldOneBeforeTheNewOneStarts) {
  controller->start();
  settle(0);
  calls.clear();
  turnTo(1);
  ASSERT_GE(calls.size(), 2u);
  EXPECT_EQ(calls[0], "resign 0");
  EXPECT_EQ(calls[1], "current 1");
}

TEST_F(FeedControllerTest, FarPagesGiveTheirPlayersBackBeforeOthersAreLoaded) {
  controller->start();
  settle(0);
  turnTo(10);
  EXPECT_THAT(wanted(), ElementsAre(10));
  const auto unloaded = std::find(calls.begin(), calls.end(), "unload 2");
  const auto loaded = std::find(calls.begin(), calls.end(), "load 10");
  EXPECT_LT(unloaded, loaded);
  EXPECT_THAT(existing(), ElementsAre(10));
  EXPECT_EQ(view->subviews().size(), 1u);
}

TEST_F(FeedControllerTest, NoMorePagesHoldPlayersThanThePoolAllows) {
  manager->setMaxPlayersAtIdleState(2);
  controller->start();
  settle(0);
  turnTo(5);
  settle(5);
  EXPECT_THAT(wanted(), ElementsAre(5, 6));
}

TEST_F(FeedControllerTest, GoingBackLoadsTheEarlierNeighbours) {
  controller->start();
  turnTo(10);
  turnTo(9);
  settle(9);
  EXPECT_THAT(wanted(), ElementsAre(7, 8, 9, 10));
}

TEST_F(FeedControllerTest, LowerBoundsTakeNeighboursAwayAndKeepThePageInView) {
  controller->start();
  settle(0);
  controller->setBounds(1, 1);
  EXPECT_EQ(manager->maxAllowedConcurrentPlayers(), 1);
  EXPECT_EQ(manager->maxPlayersAtIdleState(), 1);
  EXPECT_THAT(wanted(), ElementsAre(0));
}

TEST_F(FeedControllerTest, HigherBoundsBringNeighboursBack) {
  controller->setBounds(1, 1);
  controller->start();
  settle(0);
  EXPECT_THAT(wanted(), ElementsAre(0));
  controller->setBounds(3, 3);
  EXPECT_THAT(wanted(), ElementsAre(0, 1, 2));
}

TEST_F(FeedControllerTest, ThePageInViewAsksEvenAPoolThatMayHoldNothing) {
  controller->setBounds(0, 0);
  controller->start();
  EXPECT_THAT(wanted(), ElementsAre(0));
}

TEST_F(FeedControllerTest, ABusyMainThreadRaisesTheBound) {
  controller->setBounds(3, 1);
  controller->start();
  settle(0);
  controller->setMainThreadIsIdle(false);
  EXPECT_FALSE(manager->mainThreadIsIdle());
  EXPECT_THAT(wanted(), ElementsAre(0, 1, 2));
  controller->setMainThreadIsIdle(true);
  EXPECT_THAT(wanted(), ElementsAre(0));
}

TEST_F(FeedControllerTest, AChangeOfThePlayersKindMakesEveryPageLookAtItsPlayer) {
  controller->start();
  calls.clear();
  controller->setUseFastPlayer(true);
  EXPECT_TRUE(manager->useFastPlayer());
  EXPECT_THAT(calls, testing::Contains("check 0"));
}

TEST_F(FeedControllerTest, EveryArrivalIsRecorded) {
  controller->start();
  turnTo(1);
  turnTo(0);
  ASSERT_EQ(statistics->swipes().size(), 3u);
  EXPECT_EQ(statistics->swipes()[1]->video, "video 1");
  EXPECT_EQ(statistics->swipes()[1]->page, 2);
  EXPECT_EQ(cell(0)->record, statistics->swipes()[2]);
}

TEST_F(FeedControllerTest, TheVolumeIsThatOfThePageInViewAndTheFollowingOnes) {
  controller->start();
  controller->setVolume(0.5);
  EXPECT_EQ(cell(0)->volumeValue, 0.5f);
  turnTo(1);
  EXPECT_EQ(cell(1)->volumeValue, 0.5f);
}

TEST_F(FeedControllerTest, PagesAreToldOfPicturesAndOfRest) {
  controller->start();
  calls.clear();
  controller->didPresent(1);
  controller->scrollingEnded();
  EXPECT_THAT(calls, ElementsAre("present 0", "rest 0"));
}

TEST_F(FeedControllerTest, StoppingGivesEveryPlayerBack) {
  controller->start();
  settle(0);
  calls.clear();
  controller->stop();
  EXPECT_THAT(calls, UnorderedElementsAre("resign 0", "unload 0", "unload 1", "unload 2"));
  EXPECT_EQ(calls[0], "resign 0");
  EXPECT_TRUE(existing().empty());
  EXPECT_EQ(controller->currentCell(), nullptr);
}

TEST_F(FeedControllerTest, ALoadThatEndsAfterTheControllerTellsNobody) {
  controller->start();
  const auto first = cell(0);
  controller->stop();
  controller = nullptr;
  first->settle();
  time.settle();
  EXPECT_TRUE(existing().contains(0));
}

TEST_F(FeedControllerTest, AFeedThatIsHeldHoldsThePagesThatComeIntoView) {
  controller->start();
  controller->setHeld(true);
  EXPECT_TRUE(cell(0)->held);
  turnTo(1);
  EXPECT_TRUE(cell(1)->held);
  controller->setHeld(false);
  EXPECT_FALSE(cell(1)->held);
}

}  // namespace
}  // namespace zaffo::feed
