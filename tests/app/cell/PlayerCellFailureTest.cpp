// SPDX-License-Identifier: Apache-2.0
#include "app/cell/PlayerCellTest.h"

#include <gmock/gmock.h>

namespace zaffo::feed {
namespace {

using testing::HasSubstr;

/// Pages whose video cannot be played, or not any more.
class PlayerCellFailureTest : public PlayerCellTest {};

TEST_F(PlayerCellFailureTest, APlayerThatLostItsItemIsDiscardedAndThePageSaysSo) {
  loadCell();
  cell->unload();
  player->item = nullptr;  // it failed when nobody looked, and the pool takes it for loaded
  player->view = PlayerFastOutputView::create();
  cell->load();
  EXPECT_EQ(loader->items.size(), 1u) << "the pool has it";
  giveThumbnail();
  EXPECT_TRUE(cell->isSettled());
  EXPECT_THAT(page()->text(), HasSubstr("There is no video in it that can be played."));
  cell->unload();
  cell->load();
  EXPECT_EQ(loader->items.size(), 2u) << "the pool has it no more";
}

TEST_F(PlayerCellFailureTest, ALoaderThatLetsGoWithoutAnAnswerGivesAPageWithText) {
  testing::internal::CaptureStderr();
  makeCurrent();
  giveThumbnail();
  loader->items.clear();
  EXPECT_FALSE(cell->isSettled()) << "not inside the loader";
  time.settle();
  EXPECT_TRUE(cell->isSettled());
  EXPECT_THAT(page()->text(), HasSubstr("Nothing that can be played can be made of it"));
  testing::internal::GetCapturedStderr();
}

TEST_F(PlayerCellFailureTest, WhatTheLoaderMakesNoItemOfIsLoadedPlainlyFromThenOn) {
  plainLoader = std::make_shared<ScriptedLoader>();
  cell = makeCell(true);
  makeCurrent();
  EXPECT_TRUE(plainLoader->items.empty());
  loader->items.clear();
  time.settle();
  EXPECT_FALSE(cell->isSettled());
  ASSERT_EQ(plainLoader->items.size(), 1u);
  EXPECT_THAT(plainLoader->itemOptions, testing::ElementsAre(AVPlayerItemLoaderOptions::fadeIn));
  plainLoader->items.back()(item, 0.1, 0.1);
  time.settle();
  finishLoad();
  EXPECT_TRUE(showsPlayer());
  EXPECT_EQ(page()->text(), "");
  cell->unload();
  manager->removeAllPlayers();
  cell->load();
  EXPECT_EQ(plainLoader->items.size(), 2u);
  EXPECT_TRUE(loader->items.empty());
}

TEST_F(PlayerCellFailureTest, WhatNoLoaderMakesAnItemOfGivesAPageWithText) {
  plainLoader = std::make_shared<ScriptedLoader>();
  cell = makeCell(true);
  cell->load();
  giveThumbnail();
  loader->items.clear();
  time.settle();
  plainLoader->items.clear();
  time.settle();
  EXPECT_TRUE(cell->isSettled());
  EXPECT_THAT(page()->text(), HasSubstr("Nothing that can be played can be made of it"));
}

TEST_F(PlayerCellFailureTest, AnAnswerIsNoSilenceWhenItsBlockIsLetGoOf) {
  cell->load();
  giveItem();
  loader->items.clear();
  time.settle();
  finishLoad();
  EXPECT_TRUE(cell->isSettled());
  EXPECT_TRUE(showsPlayer());
  EXPECT_EQ(page()->text(), "");
}

TEST_F(PlayerCellFailureTest, SilenceAfterTheLoadWasGivenUpIsNotHeeded) {
  cell->load();
  cell->unload();
  cell->load();
  loader->items.erase(loader->items.begin());
  time.settle();
  giveItem();
  finishLoad();
  EXPECT_TRUE(showsPlayer());
}

TEST_F(PlayerCellFailureTest, APlayerThatFailsOnTheWayIsStoppedAndKeepsNoItem) {
  testing::internal::CaptureStderr();
  failWhilePlaying();
  EXPECT_EQ(player->rateValue, 0);
  EXPECT_THAT(*log, testing::Contains("player teardown"));
  EXPECT_EQ(manager->debugDescription(),
            "Player 0 - videoId: nil, state: NotLoaded, activeUses: 0");
  testing::internal::GetCapturedStderr();
}

TEST_F(PlayerCellFailureTest, APageThatWouldHaveToTakeAPlayerFromAnotherIsAPageWithText) {
  manager->setMaxPlayersAtIdleState(1);
  cell->load();
  giveItem();
  const auto waitingCell = cell;
  cell = makeCell(true, "other");
  cell->load();
  giveThumbnail();
  giveItem();
  EXPECT_THAT(page()->text(), HasSubstr("No player available for this video"));
  finishLoad();
  EXPECT_EQ(manager->debugDescription(), "Player 0 - videoId: id, state: Loaded, activeUses: 1");
}

TEST_F(PlayerCellFailureTest, AFailedItemShowsWhatTheThumbnailSaysIsWrong) {
  testing::internal::CaptureStderr();
  makeCurrent();
  item = nullptr;
  giveItem();
  EXPECT_FALSE(cell->isSettled()) << "the reason is not known yet";
  giveThumbnail(errorSaying("no such file"));
  EXPECT_TRUE(cell->isSettled());
  EXPECT_TRUE(cell->isShown());
  EXPECT_EQ(page()->text(), "clip.mp4\n\nno such file");
  EXPECT_EQ(swipe->error, "no such file");
  EXPECT_EQ(settled, 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "zaffo-feed: clip.mp4: no such file\n");
}

TEST_F(PlayerCellFailureTest, AFailedItemWithAThumbnailStillSaysSomething) {
  cell->load();
  giveThumbnail();
  item = nullptr;
  giveItem();
  EXPECT_THAT(page()->text(), HasSubstr("no video in it that can be played"));
}

TEST_F(PlayerCellFailureTest, AFailedPlayerShowsItsOwnError) {
  cell->load();
  giveThumbnail();
  giveItem();
  finishLoad(errorSaying("no decoder"));
  EXPECT_EQ(page()->text(), "clip.mp4\n\nno decoder");
  EXPECT_TRUE(cell->isSettled());
}

TEST_F(PlayerCellFailureTest, AVideoThatFailsOnTheWayShowsItsError) {
  testing::internal::CaptureStderr();
  failWhilePlaying();
  EXPECT_EQ(page()->text(), "clip.mp4\n\ndamaged");
  EXPECT_EQ(swipe->error, "damaged");
  EXPECT_FALSE(showsPlayer());
  testing::internal::GetCapturedStderr();
}

TEST_F(PlayerCellFailureTest, AnItemThatFailedBeforeItsPlayerCameShowsItsError) {
  testing::internal::CaptureStderr();
  makeCurrent();
  giveThumbnail();
  giveItem();
  item->statusValue = AVPlayerItemStatus::Failed;
  item->errorValue = errorSaying("protected");
  finishLoad();
  EXPECT_EQ(page()->text(), "clip.mp4\n\nprotected");
  EXPECT_TRUE(cell->isShown());
  EXPECT_EQ(swipe->error, "protected");
  testing::internal::GetCapturedStderr();
}

TEST_F(PlayerCellFailureTest, AFailedPageIsTriedAgainWhenItComesIntoView) {
  cell->load();
  giveThumbnail();
  giveItem();
  finishLoad(errorSaying("the server is away"));
  makeCurrent();
  EXPECT_EQ(page()->text(), "");
  giveItem();
  finishLoad();
  EXPECT_EQ(player->rateValue, 1);
  EXPECT_EQ(swipe->error, "");
}

TEST_F(PlayerCellFailureTest, ANeighbourWhoseServerIsAwayPromisesNothing) {
  cell->load();
  loader->items.back()(nullptr, 0, 0);
  time.settle();
  giveThumbnail(NSError::create("NSURLErrorDomain", -1005,
                                {{NSLocalizedDescriptionKey, std::string("It is away.")}}));
  EXPECT_EQ(page()->text(), "clip.mp4\n\nIt is away.");
  time.advance(60 * kNanosecondsPerSecond);
  EXPECT_EQ(loader->items.size(), 1U);
}

/// A page in view whose server does not answer.
class UnreachableVideoTest : public PlayerCellTest {
 protected:
  UnreachableVideoTest() {
    testing::internal::CaptureStderr();
    makeCurrent();
    failToLoad();
  }
  ~UnreachableVideoTest() override { testing::internal::GetCapturedStderr(); }
  void failToLoad(long code = -1005) {
    loader->items.back()(nullptr, 0, 0);
    time.settle();
    giveThumbnail(NSError::create("NSURLErrorDomain", code,
                                  {{NSLocalizedDescriptionKey, std::string("It is away.")}}));
  }
  void waitSeconds(int64_t seconds) { time.advance(seconds * kNanosecondsPerSecond); }
  [[nodiscard]] std::size_t tries() const { return loader->items.size(); }
};

TEST_F(UnreachableVideoTest, IsTriedAgainAfterGrowingPauses) {
  EXPECT_EQ(page()->text(), "clip.mp4\n\nIt is away.\nIt is tried again in a moment.");
  std::size_t expected = 1;
  for (const int64_t pause : {2, 4, 8, 16, 30, 30}) {
    waitSeconds(pause - 1);
    EXPECT_EQ(tries(), expected) << pause;
    waitSeconds(1);
    EXPECT_EQ(tries(), ++expected) << pause;
    EXPECT_THAT(page()->text(), HasSubstr("It is away.")) << "until there is something better";
    failToLoad();
  }
}

TEST_F(UnreachableVideoTest, PlaysOnceTheServerAnswers) {
  waitSeconds(2);
  giveItem();
  finishLoad();
  EXPECT_EQ(page()->text(), "");
  EXPECT_TRUE(showsPlayer());
  EXPECT_EQ(player->rateValue, 1);
  waitSeconds(60);
  EXPECT_EQ(tries(), 2U);
}

TEST_F(UnreachableVideoTest, IsTriedAgainWhenItBreaksOffWhilePlaying) {
  waitSeconds(2);
  giveItem();
  giveThumbnail();
  finishLoad();
  item->statusValue = AVPlayerItemStatus::Failed;
  item->errorValue = NSError::create("NSURLErrorDomain", -1001, {});
  NSNotificationCenter::defaultCenter().postNotification(
      AVPlayerItemFailedToPlayToEndTimeNotification, item,
      {{AVPlayerItemFailedToPlayToEndTimeErrorKey, errorSaying("gone")}});
  EXPECT_THAT(page()->text(), HasSubstr("It is tried again"));
  waitSeconds(2);
  EXPECT_EQ(tries(), 3U);
}

TEST_F(UnreachableVideoTest, IsLeftAloneOutOfView) {
  cell->resignCurrent();
  waitSeconds(60);
  EXPECT_EQ(tries(), 1U);
}

TEST_F(UnreachableVideoTest, IsLeftAloneWhenTheServerHasNoSuchClip) {
  waitSeconds(2);
  failToLoad(-1100);
  EXPECT_EQ(page()->text(), "clip.mp4\n\nIt is away.");
  waitSeconds(60);
  EXPECT_EQ(tries(), 2U);
}

}  // namespace
}  // namespace zaffo::feed
