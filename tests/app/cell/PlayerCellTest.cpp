// SPDX-License-Identifier: Apache-2.0
#include "app/cell/PlayerCellTest.h"

#include <gmock/gmock.h>

namespace zaffo::feed {
namespace {

using testing::HasSubstr;

TEST_F(PlayerCellTest, ALoadAsksTheLoaderThenThePoolAndShowsThePlayersView) {
  cell->load();
  EXPECT_EQ(loader->items.size(), 1u);
  EXPECT_EQ(player, nullptr);
  giveItem();
  ASSERT_NE(player, nullptr);
  EXPECT_FALSE(cell->isSettled());
  finishLoad();
  EXPECT_TRUE(cell->isSettled());
  EXPECT_EQ(settled, 1);
  EXPECT_TRUE(showsPlayer());
  EXPECT_EQ(player->rateValue, 0) << "a neighbour stands still";
}

TEST_F(PlayerCellTest, LoadingTwiceLoadsOnce) {
  cell->load();
  cell->load();
  EXPECT_EQ(loader->items.size(), 1u);
}

TEST_F(PlayerCellTest, ThePageInViewPlaysAsSoonAsItsPlayerComes) {
  makeCurrent();
  giveItem();
  time.advance(7);
  finishLoad();
  EXPECT_EQ(player->rateValue, 1);
  EXPECT_EQ(player->volumeValue, 0.5f);
  EXPECT_FALSE(swipe->warm);
  EXPECT_EQ(swipe->completed, TimeSource::now());
}

TEST_F(PlayerCellTest, ALoadedNeighbourAnswersAtOnceAndPlaysFromItsStart) {
  loadCell();
  makeCurrent();
  EXPECT_TRUE(swipe->warm);
  EXPECT_EQ(swipe->completed, TimeSource::now());
  EXPECT_EQ(player->rateValue, 1);
  EXPECT_TRUE(player->seeks.empty()) << "it stands at its start already";
  EXPECT_EQ(manager->debugDescription(), "Player 0 - videoId: id, state: Loaded, activeUses: 1");
}

TEST_F(PlayerCellTest, AVideoThatThePoolKeptIsWarmToo) {
  loadCell();
  cell->unload();
  cell = makeCell(true);
  makeCurrent();
  EXPECT_TRUE(swipe->warm);
  EXPECT_TRUE(showsPlayer());
  EXPECT_EQ(loader->items.size(), 1u);
}

TEST_F(PlayerCellTest, AVideoThatIsLoadedAsItComesIntoViewFadesIn) {
  makeCurrent();
  EXPECT_THAT(loader->itemOptions, testing::ElementsAre(AVPlayerItemLoaderOptions::fadeIn));
}

TEST_F(PlayerCellTest, ANeighbourIsLoadedWithoutAFadeInAndStaysWarm) {
  loadCell();
  EXPECT_THAT(loader->itemOptions, testing::ElementsAre(AVPlayerItemLoaderOptions()));
  makeCurrent();
  EXPECT_TRUE(swipe->warm);
  EXPECT_EQ(player->rateValue, 1);
  EXPECT_EQ(loader->items.size(), 1u);
}

TEST_F(PlayerCellTest, AVideoThatWasInViewIsWarmAsANeighbourToo) {
  makeCurrent();
  giveItem();
  finishLoad();
  cell->unload();
  cell = makeCell(true);
  cell->load();
  EXPECT_TRUE(showsPlayer());
  makeCurrent();
  EXPECT_TRUE(swipe->warm);
  EXPECT_EQ(loader->items.size(), 1u);
  EXPECT_EQ(manager->debugDescription(), "Player 0 - videoId: id, state: Loaded, activeUses: 1");
}

TEST_F(PlayerCellTest, ALeftPageStopsAndGoesBackToItsStartOutOfSight) {
  loadCell();
  makeCurrent();
  cell->resignCurrent();
  EXPECT_EQ(player->rateValue, 0);
  EXPECT_TRUE(player->seeks.empty()) << "it is still gliding out";
  cell->scrollingEnded();
  ASSERT_EQ(player->seeks.size(), 1u);
  EXPECT_EQ(player->seeks[0].time, kCMTimeZero);
  cell->scrollingEnded();
  EXPECT_EQ(player->seeks.size(), 1u);
}

TEST_F(PlayerCellTest, APageThatIsLeftAndComesBackBeforeRestStartsAnew) {
  loadCell();
  makeCurrent();
  cell->resignCurrent();
  makeCurrent();
  EXPECT_EQ(player->seeks.size(), 1u);
  EXPECT_EQ(player->rateValue, 1);
}

TEST_F(PlayerCellTest, UnloadingGivesThePlayerBack) {
  loadCell();
  cell->unload();
  EXPECT_FALSE(showsPlayer());
  EXPECT_FALSE(cell->isSettled());
  EXPECT_THAT(manager->debugDescription(), HasSubstr("activeUses: 0"));
}

TEST_F(PlayerCellTest, APlayingPageStopsItsPlayerBeforeItGivesItBack) {
  loadCell();
  makeCurrent();
  ASSERT_EQ(player->rateValue, 1);
  float rateWhenIdle = -1;
  player->onSeek = [&] { rateWhenIdle = player->rateValue; };
  cell->unload();
  EXPECT_EQ(rateWhenIdle, 0);
}

TEST_F(PlayerCellTest, APlayingPageThatGoesStopsItsPlayer) {
  loadCell();
  makeCurrent();
  cell = nullptr;
  EXPECT_THAT(manager->debugDescription(), HasSubstr("activeUses: 0"));
  EXPECT_EQ(player->rateValue, 0);
}

TEST_F(PlayerCellTest, APlayerThatThePoolTookForAnotherVideoIsNotThisPagesToStop) {
  manager->setMaxPlayersAtIdleState(1);
  loadCell();
  makeCurrent();
  const auto other =
      std::make_shared<FeedVideo>(NSURL::URLWithString("file:///other.mp4"), "other", loader);
  manager->loadPlayer(other, std::make_shared<ScriptedAVPlayerItem>(), {}, {});
  player->rateValue = 2;  // as its new user wants it
  cell->unload();
  EXPECT_EQ(player->rateValue, 2);
}

TEST_F(PlayerCellTest, APageThatWaitsKeepsItsPlayerWhenOneWithAnotherKindOfItemComes) {
  manager->setMaxPlayersAtIdleState(2);
  item = ScriptedAVPlayerItem::create(false);
  cell->load();
  giveItem();
  const auto waiting = player;
  const auto waitingCell = cell;
  // A page with a local item, in front of it in the pool and idle: the pool is full.
  cell = makeCell(true, "local");
  item = ScriptedAVPlayerItem::create(true);
  loadCell();
  cell->unload();
  cell = makeCell(true, "streaming");
  item = ScriptedAVPlayerItem::create(false);
  cell->load();
  giveItem();
  EXPECT_TRUE(waiting->isLoading());
  EXPECT_THAT(manager->debugDescription(),
              testing::AllOf(HasSubstr("videoId: id, state: Loading, activeUses: 1"),
                             HasSubstr("videoId: streaming, state: Loading, activeUses: 1")));
}

TEST_F(PlayerCellTest, UnloadingEndsALoadUnderWay) {
  cell->load();
  giveItem();
  cell->unload();
  EXPECT_THAT(*log, testing::Contains("player cancel"));
  cell->load();
  EXPECT_EQ(loader->items.size(), 2u);
}

TEST_F(PlayerCellTest, AnItemThatComesAfterItWasGivenUpIsNotLoaded) {
  cell->load();
  cell->unload();
  giveItem();
  EXPECT_EQ(player, nullptr);
}

TEST_F(PlayerCellTest, AnItemThatComesAfterThePageIsGoneIsNotLoaded) {
  cell->load();
  cell = nullptr;
  giveItem();
  EXPECT_EQ(player, nullptr);
}

TEST_F(PlayerCellTest, AClipStartsAgainAtItsEnd) {
  loadCell();
  makeCurrent();
  player->rateValue = 0;  // as at an item's end
  postEnd();
  ASSERT_EQ(player->seeks.size(), 1u);
  EXPECT_EQ(player->seeks[0].time, kCMTimeZero);
  EXPECT_EQ(player->seeks[0].toleranceBefore, kCMTimeZero);
  EXPECT_EQ(player->rateValue, 0);
  player->seeks[0].completion(true);
  EXPECT_EQ(player->rateValue, 1);
}

TEST_F(PlayerCellTest, AnInterruptedRestartStaysWhereItWasTaken) {
  loadCell();
  makeCurrent();
  player->rateValue = 0;
  postEnd();
  player->seeks[0].completion(false);
  EXPECT_EQ(player->rateValue, 0);
}

TEST_F(PlayerCellTest, WithoutLoopingAClipStandsAtItsEnd) {
  cell = makeCell(false);
  loadCell();
  makeCurrent();
  postEnd();
  EXPECT_TRUE(player->seeks.empty());
}

TEST_F(PlayerCellTest, TheEndOfAnotherItemIsNoneOfItsBusiness) {
  loadCell();
  makeCurrent();
  item = std::make_shared<ScriptedAVPlayerItem>();
  postEnd();
  EXPECT_TRUE(player->seeks.empty());
}

TEST_F(PlayerCellTest, APageThatWasLeftDoesNotStartAgain) {
  loadCell();
  makeCurrent();
  postEnd();
  cell->resignCurrent();
  player->seeks[0].completion(true);
  EXPECT_EQ(player->rateValue, 0);
}

TEST_F(PlayerCellTest, APlayerThatThePoolDroppedIsLoadedAnew) {
  loadCell();
  makeCurrent();
  manager->removeAllPlayers();
  cell->checkPlayer();
  EXPECT_FALSE(cell->isSettled());
  cell->load();
  giveItem();
  finishLoad();
  EXPECT_EQ(player->rateValue, 1);
}

TEST_F(PlayerCellTest, ALoadThatThePoolDroppedIsStartedAnew) {
  cell->load();
  giveItem();
  manager->removeAllPlayers();
  cell->checkPlayer();
  cell->load();
  EXPECT_EQ(loader->items.size(), 2u);
}

TEST_F(PlayerCellTest, APlayerThatIsStillThereIsKept) {
  loadCell();
  cell->checkPlayer();
  EXPECT_TRUE(cell->isSettled());
  EXPECT_TRUE(showsPlayer());
}

TEST_F(PlayerCellTest, AWarmPageWhosePlayerIsGoneIsCold) {
  loadCell();
  manager->removeAllPlayers();
  makeCurrent();
  EXPECT_FALSE(swipe->warm);
  giveItem();
  finishLoad();
  EXPECT_EQ(player->rateValue, 1);
}

TEST_F(PlayerCellTest, AVideoThatIsInAnotherPlayerByNowIsShownFromThere) {
  loadCell();
  const auto former = player;
  manager->removeAllPlayers();
  const auto other = makeCell(true);
  other->load();
  giveItem();
  finishLoad();
  ASSERT_NE(player, former);
  makeCurrent();
  EXPECT_TRUE(showsPlayer());
  EXPECT_EQ(player->rateValue, 1);
}

TEST_F(PlayerCellTest, RateAndVolumeReachThePlayerAndAreKeptUntilItComes) {
  makeCurrent();
  cell->setRate(0);
  cell->setVolume(0.25f);
  giveItem();
  finishLoad();
  EXPECT_EQ(player->rateValue, 0);
  EXPECT_EQ(player->volumeValue, 0.25f);
  cell->setRate(2);
  EXPECT_EQ(player->rateValue, 2);
  cell->togglePlaying();
  EXPECT_EQ(player->rateValue, 0);
  cell->togglePlaying();
  EXPECT_EQ(player->rateValue, 1);
}

TEST_F(PlayerCellTest, ASeekIsExactAndEndsWhenThePlayersDoes) {
  loadCell();
  makeCurrent();
  int ends = 0;
  cell->seek(CMTimeMake(3, 2), [&ends] { ++ends; });
  ASSERT_EQ(player->seeks.size(), 1u);
  EXPECT_EQ(player->seeks[0].time, CMTimeMake(3, 2));
  EXPECT_EQ(player->seeks[0].toleranceAfter, kCMTimeZero);
  EXPECT_EQ(ends, 0);
  player->seeks[0].completion(true);
  EXPECT_EQ(ends, 1);
}

TEST_F(PlayerCellTest, ASeekWithoutAPlayerEndsAtOnce) {
  int ends = 0;
  cell->seek(CMTimeMake(3, 2), [&ends] { ++ends; });
  EXPECT_EQ(ends, 1);
}

TEST_F(PlayerCellTest, TheThumbnailIsAskedForOnceAtTheSizeOfThePage) {
  cell->loadThumbnail();
  cell->loadThumbnail();
  EXPECT_EQ(loader->thumbnails.size(), 1u);
  EXPECT_EQ(loader->thumbnailSize, (CGSize{400, 700}));
  giveThumbnail();
  EXPECT_TRUE(page()->hasThumbnail());
}

TEST_F(PlayerCellTest, AThumbnailThatComesAfterThePageIsGoneIsDropped) {
  cell->loadThumbnail();
  cell = nullptr;
  giveThumbnail();
  EXPECT_EQ(settled, 0);
}

}  // namespace
}  // namespace zaffo::feed
