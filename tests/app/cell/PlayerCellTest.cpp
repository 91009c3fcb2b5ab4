#include "cell/PlayerCell.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "doubles/ManualTime.h"
#include "doubles/ScriptedAVPlayerItem.h"
#include "doubles/ScriptedMutablePlayer.h"

namespace zaffo::feed {
namespace {

using testing::HasSubstr;

/// A loader whose answers a test gives.
class ScriptedLoader final : public AVPlayerItemLoader {
 public:
  ZFCancelCommandPtr loadAVPlayerItemWithOptions(AVPlayerItemLoaderOptions options,
                                                 ItemCompletion completeBlock) override {
    itemOptions.push_back(options);
    items.push_back(std::move(completeBlock));
    return ZFNoopCancelCommand::sharedInstance();
  }
  ZFCancelCommandPtr loadThumbnailWithPriority(unsigned long, CGSize size,
                                               ThumbnailCompletion completion) override {
    thumbnailSize = size;
    thumbnails.push_back(std::move(completion));
    return ZFNoopCancelCommand::sharedInstance();
  }
  ZFCancelCommandPtr preloadWithPriority(unsigned long, PreloadCompletion) override {
    return ZFNoopCancelCommand::sharedInstance();
  }
  bool canReuseAVPlayerItem() const override { return true; }

  std::vector<AVPlayerItemLoaderOptions> itemOptions;
  std::vector<ItemCompletion> items;
  std::vector<ThumbnailCompletion> thumbnails;
  CGSize thumbnailSize;
};

NSErrorPtr errorSaying(const std::string& text) {
  return NSError::create("test", 1, {{NSLocalizedDescriptionKey, text}});
}

class PlayerCellTest : public testing::Test {
 protected:
  PlayerCellTest() {
    manager = PlayerManager::create([this](PlayerManager::PlayerKind) {
      player = std::make_shared<ScriptedMutablePlayer>("player", log);
      player->view = UIView::create();
      return player;
    });
    cell = makeCell(true);
  }

  std::shared_ptr<PlayerCell> makeCell(bool loops, const std::string& id = "id") {
    const auto url = NSURL::URLWithString("file:///clip.mp4");
    const auto video = std::make_shared<FeedVideo>(url, id, loader, plainLoader);
    auto made = PlayerCell::create(manager, video, {loops, {400, 700}});
    made->setSettledHandler([this] { ++settled; });
    return made;
  }

  void giveItem() {
    loader->items.back()(item, 5, 5);
    time.settle();
  }
  void finishLoad(NSErrorPtr error = nullptr) {
    player->finishPendingLoad(std::move(error));
    time.settle();
  }
  void loadCell() {
    cell->load();
    giveItem();
    finishLoad();
  }
  void giveThumbnail(NSErrorPtr error = nullptr) {
    const auto image = std::make_shared<const CGImage>(1, 1, 4, std::vector<uint8_t>{0, 0, 0, 255});
    loader->thumbnails.back()(error ? nullptr : UIImage::imageWithCGImage(image), error);
    time.settle();
  }
  void postEnd() {
    NSNotificationCenter::defaultCenter().postNotification(AVPlayerItemDidPlayToEndTimeNotification,
                                                           item);
    time.settle();
  }
  void failWhilePlaying() {
    loadCell();
    giveThumbnail();
    makeCurrent();
    NSNotificationCenter::defaultCenter().postNotification(
        AVPlayerItemFailedToPlayToEndTimeNotification, item,
        {{AVPlayerItemFailedToPlayToEndTimeErrorKey, errorSaying("damaged")}});
  }
  void makeCurrent() { cell->becomeCurrent(swipe, 0.5f); }

  [[nodiscard]] std::shared_ptr<FeedPage> page() const {
    return std::static_pointer_cast<FeedPage>(cell->view());
  }
  [[nodiscard]] bool showsPlayer() const {
    return player && player->view->superview() == cell->view();
  }

  ManualTime time;
  EventLog log = std::make_shared<std::vector<std::string>>();
  std::shared_ptr<ScriptedMutablePlayer> player;
  std::shared_ptr<ScriptedLoader> loader = std::make_shared<ScriptedLoader>();
  std::shared_ptr<ScriptedLoader> plainLoader;  ///< none at first
  std::shared_ptr<ScriptedAVPlayerItem> item = std::make_shared<ScriptedAVPlayerItem>();
  std::shared_ptr<PlayerManager> manager;
  std::shared_ptr<PlayerCell> cell;
  std::shared_ptr<Swipe> swipe = std::make_shared<Swipe>();
  int settled = 0;
};

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

TEST_F(PlayerCellTest, APlayerThatLostItsItemIsDiscardedAndThePageSaysSo) {
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

TEST_F(PlayerCellTest, ALoaderThatLetsGoWithoutAnAnswerGivesAPageWithText) {
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

TEST_F(PlayerCellTest, WhatTheLoaderMakesNoItemOfIsLoadedPlainlyFromThenOn) {
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

TEST_F(PlayerCellTest, WhatNoLoaderMakesAnItemOfGivesAPageWithText) {
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

TEST_F(PlayerCellTest, AnAnswerIsNoSilenceWhenItsBlockIsLetGoOf) {
  cell->load();
  giveItem();
  loader->items.clear();
  time.settle();
  finishLoad();
  EXPECT_TRUE(cell->isSettled());
  EXPECT_TRUE(showsPlayer());
  EXPECT_EQ(page()->text(), "");
}

TEST_F(PlayerCellTest, SilenceAfterTheLoadWasGivenUpIsNotHeeded) {
  cell->load();
  cell->unload();
  cell->load();
  loader->items.erase(loader->items.begin());
  time.settle();
  giveItem();
  finishLoad();
  EXPECT_TRUE(showsPlayer());
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

TEST_F(PlayerCellTest, APlayerThatFailsOnTheWayIsStoppedAndKeepsNoItem) {
  testing::internal::CaptureStderr();
  failWhilePlaying();
  EXPECT_EQ(player->rateValue, 0);
  EXPECT_THAT(*log, testing::Contains("player teardown"));
  EXPECT_EQ(manager->debugDescription(),
            "Player 0 - videoId: nil, state: NotLoaded, activeUses: 0");
  testing::internal::GetCapturedStderr();
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

TEST_F(PlayerCellTest, APageThatWouldHaveToTakeAPlayerFromAnotherIsAPageWithText) {
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

TEST_F(PlayerCellTest, AFailedItemShowsWhatTheThumbnailSaysIsWrong) {
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

TEST_F(PlayerCellTest, AFailedItemWithAThumbnailStillSaysSomething) {
  cell->load();
  giveThumbnail();
  item = nullptr;
  giveItem();
  EXPECT_THAT(page()->text(), HasSubstr("no video in it that can be played"));
}

TEST_F(PlayerCellTest, AFailedPlayerShowsItsOwnError) {
  cell->load();
  giveThumbnail();
  giveItem();
  finishLoad(errorSaying("no decoder"));
  EXPECT_EQ(page()->text(), "clip.mp4\n\nno decoder");
  EXPECT_TRUE(cell->isSettled());
}

TEST_F(PlayerCellTest, AVideoThatFailsOnTheWayShowsItsError) {
  testing::internal::CaptureStderr();
  failWhilePlaying();
  EXPECT_EQ(page()->text(), "clip.mp4\n\ndamaged");
  EXPECT_EQ(swipe->error, "damaged");
  EXPECT_FALSE(showsPlayer());
  testing::internal::GetCapturedStderr();
}

TEST_F(PlayerCellTest, AnItemThatFailedBeforeItsPlayerCameShowsItsError) {
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

TEST_F(PlayerCellTest, AFailedPageIsTriedAgainWhenItComesIntoView) {
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
