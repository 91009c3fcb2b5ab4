// SPDX-License-Identifier: Apache-2.0
#include "native/NativeTest.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kDisposed =
    "com.zaffoapp.co 500 The player has been disposed and cannot be used anymore.";

class PlayerNativeLoadTest : public NativeTest {
 protected:
  /// Brings a load of a new item as far as its preroll.
  ZFCancelCommandPtr preroll(const std::shared_ptr<Reports>& told) {
    return player->loadPlayerItem(ScriptedAVPlayerItem::create(true), into(told));
  }
};

TEST_F(PlayerNativeLoadTest, AReadyItemPrerollsAtOnceAndIsReportedWhenThatHasCompleted) {
  const auto item = ScriptedAVPlayerItem::create(true);
  player->loadPlayerItem(item, into(reports));
  EXPECT_THAT(platform->replacements, ElementsAre(item));
  EXPECT_EQ(player->playerItem(), item);
  EXPECT_THAT(platform->prerollRates, ElementsAre(1.0f));
  EXPECT_THAT(*reports, IsEmpty());
  platform->prerolls.front()(true);
  EXPECT_THAT(*reports, ElementsAre(""));
}

TEST_F(PlayerNativeLoadTest, ThePrerollsFinishedFlagDoesNotMatter) {
  preroll(reports);
  platform->prerolls.front()(false);
  EXPECT_THAT(*reports, ElementsAre(""));
}

TEST_F(PlayerNativeLoadTest, APrerollThatCompletesTwiceIsReportedOnce) {
  preroll(reports);
  platform->prerolls.front()(true);
  platform->prerolls.front()(true);
  EXPECT_THAT(*reports, ElementsAre(""));
}

TEST_F(PlayerNativeLoadTest, AReadyItemInAPlayingPlayerIsReportedInsideTheCallWithoutPreroll) {
  platform->rateValue = 1;
  player->loadPlayerItem(ScriptedAVPlayerItem::create(true), into(reports));
  EXPECT_THAT(*reports, ElementsAre(""));
  EXPECT_THAT(platform->prerolls, IsEmpty());
}

TEST_F(PlayerNativeLoadTest, ANegativeRateIsNotPlaying) {
  platform->rateValue = -1;
  preroll(reports);
  EXPECT_EQ(platform->prerolls.size(), 1u);
}

TEST_F(PlayerNativeLoadTest, APlayerThatIsNoLongerReadyIsReportedWithoutPreroll) {
  platform->onStatusRead = [this] {
    if (platform->statusReads == 2) platform->statusValue = AVPlayerStatus::Unknown;
  };
  preroll(reports);
  EXPECT_EQ(platform->statusReads, 2);
  EXPECT_THAT(*reports, ElementsAre(""));
  EXPECT_THAT(platform->prerolls, IsEmpty());
}

TEST_F(PlayerNativeLoadTest, ALoadWithoutACompletionPrerollsAllTheSame) {
  const auto item = ScriptedAVPlayerItem::create(true);
  const auto command = player->loadPlayerItem(item, nullptr);
  EXPECT_EQ(player->playerItem(), item);
  ASSERT_EQ(platform->prerolls.size(), 1u);
  EXPECT_NO_THROW(platform->prerolls.front()(true));
  command->cancel();
  EXPECT_EQ(platform->cancelledPrerolls, 0) << "the load is over";
}

TEST_F(PlayerNativeLoadTest, ALoadWithoutACompletionIntoAPlayingPlayerEndsInsideTheCall) {
  platform->rateValue = 1;
  const auto item = ScriptedAVPlayerItem::create(true);
  EXPECT_NO_THROW(player->loadPlayerItem(item, nullptr));
  EXPECT_EQ(player->playerItem(), item);
  const int reads = item->statusReads;
  time.advance(10 * kInterval);
  EXPECT_EQ(item->statusReads, reads);
}

TEST_F(PlayerNativeLoadTest, AFailedLoadWithoutACompletionEndsAndThePlayerGoesOn) {
  const auto failed = ScriptedAVPlayerItem::create(true);
  failed->statusValue = AVPlayerItemStatus::Failed;
  EXPECT_NO_THROW(player->loadPlayerItem(failed, nullptr));
  platform->statusValue = AVPlayerStatus::Failed;
  EXPECT_NO_THROW(player->loadPlayerItem(ScriptedAVPlayerItem::create(true), nullptr));
  const int reads = failed->statusReads + platform->statusReads;
  time.advance(10 * kInterval);
  EXPECT_EQ(failed->statusReads + platform->statusReads, reads) << "nothing is waited for";
  platform->statusValue = AVPlayerStatus::ReadyToPlay;
  preroll(reports);
  platform->prerolls.front()(true);
  EXPECT_THAT(*reports, ElementsAre(""));
}

TEST_F(PlayerNativeLoadTest, ADisposedPlayerTakesALoadWithoutACompletionAndDoesNothing) {
  player->fullTeardown();
  const auto replacements = platform->replacements.size();
  EXPECT_NO_THROW(player->loadPlayerItem(ScriptedAVPlayerItem::create(true), nullptr));
  EXPECT_EQ(platform->replacements.size(), replacements);
}

TEST_F(PlayerNativeLoadTest, LooksAtAnItemTenTimesASecondUntilItIsReady) {
  const auto item = waitingItem();
  player->loadPlayerItem(item, into(reports));
  EXPECT_EQ(item->statusReads, 1);
  time.advance(kInterval - 1);
  EXPECT_EQ(item->statusReads, 1);
  time.advance(1 + 9 * kInterval);
  EXPECT_EQ(item->statusReads, 11);
  EXPECT_THAT(platform->prerolls, IsEmpty());
  item->statusValue = AVPlayerItemStatus::ReadyToPlay;
  time.advance(kInterval);
  EXPECT_EQ(platform->prerolls.size(), 1u);
  const int reads = item->statusReads;
  time.advance(10 * kInterval);
  EXPECT_EQ(item->statusReads, reads) << "an item that is ready is not looked at again";
}

TEST_F(PlayerNativeLoadTest, LooksAtThePlayerTenTimesASecondUntilItIsReady) {
  platform->statusValue = AVPlayerStatus::Unknown;
  preroll(reports);
  EXPECT_EQ(platform->statusReads, 1);
  time.advance(10 * kInterval);
  EXPECT_EQ(platform->statusReads, 11);
  platform->statusValue = AVPlayerStatus::ReadyToPlay;
  platform->rateValue = 1;
  time.advance(kInterval);
  EXPECT_THAT(*reports, ElementsAre(""));
  const int reads = platform->statusReads;
  time.advance(10 * kInterval);
  EXPECT_EQ(platform->statusReads, reads) << "an idle player has no timer";
}

TEST_F(PlayerNativeLoadTest, AnItemThatNeverGetsReadyIsWaitedForWithoutEnd) {
  const auto item = waitingItem();
  player->loadPlayerItem(item, into(reports));
  time.advance(600 * kNanosecondsPerSecond);
  EXPECT_THAT(*reports, IsEmpty());
  EXPECT_EQ(item->statusReads, 6001);
  player->teardownPlayerItem();
  time.advance(kNanosecondsPerSecond);
  EXPECT_EQ(item->statusReads, 6001);
  EXPECT_THAT(*reports, IsEmpty());
}

TEST_F(PlayerNativeLoadTest, AFailedItemReportsItsOwnError) {
  const auto item = waitingItem();
  NSErrorPtr told;
  player->loadPlayerItem(item, [&](const NSErrorPtr& error) { told = error; });
  item->statusValue = AVPlayerItemStatus::Failed;
  item->errorValue = NSError::create("item", 3);
  time.advance(kInterval);
  EXPECT_EQ(told, item->errorValue);
  EXPECT_EQ(player->playerItem(), item) << "the failed item stays";
  const int reads = item->statusReads;
  time.advance(10 * kInterval);
  EXPECT_EQ(item->statusReads, reads);
}

TEST_F(PlayerNativeLoadTest, AFailedItemWithoutAnErrorReportsThatItFailedToLoad) {
  const auto item = ScriptedAVPlayerItem::create(true);
  item->statusValue = AVPlayerItemStatus::Failed;
  player->loadPlayerItem(item, into(reports));
  EXPECT_THAT(*reports, ElementsAre("com.zaffoapp.co 500 Failed to load item"));
}

TEST_F(PlayerNativeLoadTest, AFailedPlayerReportsItsOwnError) {
  platform->statusValue = AVPlayerStatus::Failed;
  platform->errorValue = NSError::create("player", 4);
  NSErrorPtr told;
  player->loadPlayerItem(ScriptedAVPlayerItem::create(true),
                         [&](const NSErrorPtr& error) { told = error; });
  EXPECT_EQ(told, platform->errorValue);
  EXPECT_NE(player->playerItem(), nullptr);
}

TEST_F(PlayerNativeLoadTest, AFailedPlayerWithoutAnErrorReportsThatLoadingFailed) {
  platform->statusValue = AVPlayerStatus::Unknown;
  preroll(reports);
  platform->statusValue = AVPlayerStatus::Failed;
  time.advance(kInterval);
  EXPECT_THAT(*reports, ElementsAre("com.zaffoapp.co 500 Player loading failed"));
  const int reads = platform->statusReads;
  time.advance(10 * kInterval);
  EXPECT_EQ(platform->statusReads, reads);
}

TEST_F(PlayerNativeLoadTest, AFailedPlayerIsReportedEvenAfterThePlayerHasGone) {
  platform->statusValue = AVPlayerStatus::Unknown;
  preroll(reports);
  // The last reference goes while a tick is reading the status.
  platform->onStatusRead = [this] {
    player.reset();
    platform->statusValue = AVPlayerStatus::Failed;
  };
  time.advance(kInterval);
  EXPECT_THAT(*reports, ElementsAre("com.zaffoapp.co 500 Player loading failed"));
}

TEST_F(PlayerNativeLoadTest, AReadyPlayerIsNotReportedAfterThePlayerHasGone) {
  platform->statusValue = AVPlayerStatus::Unknown;
  platform->rateValue = 1;
  preroll(reports);
  platform->onStatusRead = [this] {
    player.reset();
    platform->statusValue = AVPlayerStatus::ReadyToPlay;
  };
  time.advance(kInterval);
  EXPECT_THAT(*reports, IsEmpty());
  EXPECT_THAT(platform->prerolls, IsEmpty());
}

TEST_F(PlayerNativeLoadTest, APrerollIsNotReportedAfterThePlayerHasGone) {
  preroll(reports);
  player.reset();
  platform->prerolls.front()(true);
  EXPECT_THAT(*reports, IsEmpty());
}

TEST_F(PlayerNativeLoadTest, ADisposedPlayerFailsALoadInsideTheCall) {
  player->fullTeardown();
  const auto command = player->loadPlayerItem(ScriptedAVPlayerItem::create(true), into(reports));
  EXPECT_THAT(*reports, ElementsAre(kDisposed));
  EXPECT_EQ(command, ZFNoopCancelCommand::sharedInstance());
}

TEST_F(PlayerNativeLoadTest, AnItemThatDisposesThePlayerFailsTheLoad) {
  // The item answers that it is ready after it has torn its player down.
  class DisposingItem final : public AVPlayerItem {
   public:
    [[nodiscard]] AVPlayerItemStatus status() const override {
      dispose();
      return AVPlayerItemStatus::ReadyToPlay;
    }
    [[nodiscard]] NSErrorPtr error() const override { return nullptr; }
    [[nodiscard]] const std::shared_ptr<AVAsset>& asset() const override { return asset_; }
    [[nodiscard]] CMTime duration() const override { return kCMTimeZero; }
    [[nodiscard]] std::shared_ptr<const AVAudioMix> audioMix() const override { return nullptr; }
    void setAudioMix(std::shared_ptr<const AVAudioMix>) override {}
    std::function<void()> dispose;

   private:
    std::shared_ptr<AVAsset> asset_ = std::make_shared<ScriptedAsset>();
  };
  const auto item = std::make_shared<DisposingItem>();
  item->dispose = [this] { player->fullTeardown(); };
  player->loadPlayerItem(item, into(reports));
  EXPECT_THAT(*reports, ElementsAre(kDisposed));
}

TEST_F(PlayerNativeLoadTest, APlayerDisposedWhileItGetsReadyFailsTheLoad) {
  platform->onStatusRead = [this] {
    if (platform->statusReads == 1) player->fullTeardown();
  };
  preroll(reports);
  EXPECT_THAT(*reports, ElementsAre(kDisposed));
}

TEST_F(PlayerNativeLoadTest, ASecondLoadAbandonsOneThatIsStillWaiting) {
  const auto first = waitingItem();
  const auto second = waitingItem();
  const auto firstReports = std::make_shared<Reports>();
  player->loadPlayerItem(first, into(firstReports));
  player->loadPlayerItem(second, into(reports));
  const int reads = first->statusReads;
  first->statusValue = AVPlayerItemStatus::ReadyToPlay;
  second->statusValue = AVPlayerItemStatus::ReadyToPlay;
  time.advance(10 * kInterval);
  EXPECT_EQ(first->statusReads, reads);
  platform->prerolls.front()(true);
  EXPECT_THAT(*firstReports, IsEmpty());
  EXPECT_THAT(*reports, ElementsAre(""));
}

TEST_F(PlayerNativeLoadTest, ASecondLoadAbandonsOneThatIsPrerolling) {
  const auto firstReports = std::make_shared<Reports>();
  preroll(firstReports);
  const auto second = waitingItem();
  player->loadPlayerItem(second, into(reports));
  EXPECT_EQ(platform->cancelledPrerolls, 1);
  platform->prerolls.front()(false);
  EXPECT_THAT(*firstReports, IsEmpty());
  EXPECT_THAT(*reports, IsEmpty());
}

TEST_F(PlayerNativeLoadTest, ALateCompletionOfACancelledPrerollIsNotTakenForThatOfTheNext) {
  const auto firstReports = std::make_shared<Reports>();
  preroll(firstReports);
  preroll(reports);
  ASSERT_EQ(platform->prerolls.size(), 2u);
  platform->prerolls[0](false);
  EXPECT_THAT(*firstReports, IsEmpty());
  EXPECT_THAT(*reports, IsEmpty());
  platform->prerolls[1](true);
  EXPECT_THAT(*firstReports, IsEmpty());
  EXPECT_THAT(*reports, ElementsAre(""));
}

TEST_F(PlayerNativeLoadTest, CancellingWhilePollingReportsNothingAndLeavesTheItem) {
  const auto item = waitingItem();
  const auto command = player->loadPlayerItem(item, into(reports));
  command->cancel();
  item->statusValue = AVPlayerItemStatus::ReadyToPlay;
  time.advance(10 * kInterval);
  EXPECT_THAT(*reports, IsEmpty());
  EXPECT_EQ(platform->cancelledPrerolls, 0);
  EXPECT_EQ(player->playerItem(), item);
}

TEST_F(PlayerNativeLoadTest, CancellingWhilePrerollingCancelsThePrerollAndReportsNothing) {
  const auto command = preroll(reports);
  // A platform that calls the handler at once, inside the cancel.
  platform->onCancelPrerolls = [this] { platform->prerolls.front()(false); };
  command->cancel();
  command->cancel();
  EXPECT_EQ(platform->cancelledPrerolls, 1);
  platform->prerolls.front()(false);
  EXPECT_THAT(*reports, IsEmpty());
  EXPECT_NE(player->playerItem(), nullptr);
}

TEST_F(PlayerNativeLoadTest, CancellingAFinishedLoadDoesNothing) {
  const auto command = preroll(reports);
  platform->prerolls.front()(true);
  command->cancel();
  EXPECT_EQ(platform->cancelledPrerolls, 0);
  EXPECT_THAT(*reports, ElementsAre(""));
}

TEST_F(PlayerNativeLoadTest, CancellingAfterThePlayerHasGoneDoesNothing) {
  const auto command = preroll(reports);
  player.reset();
  command->cancel();
  EXPECT_EQ(platform->cancelledPrerolls, 0);
}

TEST_F(PlayerNativeLoadTest, TeardownWhilePrerollingCancelsThePreroll) {
  preroll(reports);
  player->teardownPlayerItem();
  EXPECT_EQ(platform->cancelledPrerolls, 1);
  platform->prerolls.front()(false);
  EXPECT_THAT(*reports, IsEmpty());
}

TEST_F(PlayerNativeLoadTest, FullTeardownWhilePrerollingCancelsThePrerollAndReportsNothing) {
  preroll(reports);
  player->fullTeardown();
  EXPECT_EQ(platform->cancelledPrerolls, 1);
  platform->prerolls.front()(false);
  EXPECT_THAT(*reports, IsEmpty());
}

TEST_F(PlayerNativeLoadTest, FullTeardownWhilePollingEndsThePollingAndReportsNothing) {
  const auto item = waitingItem();
  player->loadPlayerItem(item, into(reports));
  player->fullTeardown();
  const int reads = item->statusReads;
  item->statusValue = AVPlayerItemStatus::ReadyToPlay;
  time.advance(10 * kInterval);
  EXPECT_EQ(item->statusReads, reads);
  EXPECT_THAT(*reports, IsEmpty());
}

TEST_F(PlayerNativeLoadTest, FullTeardownWhileWaitingForThePlayerReportsNothing) {
  platform->statusValue = AVPlayerStatus::Unknown;
  preroll(reports);
  player->fullTeardown();
  const int reads = platform->statusReads;
  platform->statusValue = AVPlayerStatus::Failed;
  time.advance(10 * kInterval);
  EXPECT_EQ(platform->statusReads, reads);
  EXPECT_THAT(*reports, IsEmpty());
}

TEST_F(PlayerNativeLoadTest, AnItemThatThePlatformRefusesFailsTheLoadWithItsError) {
  platform->refusal = NSError::create("platform", 7);
  NSErrorPtr told;
  const auto refused = waitingItem();
  ZFCancelCommandPtr command;
  EXPECT_NO_THROW(
      command = player->loadPlayerItem(refused, [&](const NSErrorPtr& error) { told = error; }));
  EXPECT_EQ(told, platform->refusal);
  ASSERT_TRUE(command);
  command->cancel();
  time.advance(10 * kInterval);
  EXPECT_EQ(refused->statusReads, 0);
  platform->refusal = nullptr;
  preroll(reports);
  platform->prerolls.front()(true);
  EXPECT_THAT(*reports, ElementsAre(""));
}

TEST_F(PlayerNativeLoadTest, SwitchingBetweenReadableAndOtherItemsEmptiesThePlayerFirst) {
  const auto readable = ScriptedAVPlayerItem::create(true);
  const auto streamed = ScriptedAVPlayerItem::create(false);
  const auto alsoStreamed = ScriptedAVPlayerItem::create(false);
  player->loadPlayerItem(readable, nullptr);
  player->loadPlayerItem(streamed, nullptr);
  player->loadPlayerItem(alsoStreamed, nullptr);
  player->loadPlayerItem(readable, nullptr);
  EXPECT_THAT(platform->replacements,
              ElementsAre(readable, nullptr, streamed, alsoStreamed, nullptr, readable));
}

TEST_F(PlayerNativeLoadTest, ALoadHoldsThePlayerOnlyWeakly) {
  const auto command = player->loadPlayerItem(waitingItem(), into(reports));
  EXPECT_EQ(player.use_count(), 1);
  preroll(reports);
  EXPECT_EQ(player.use_count(), 1);
}

TEST_F(PlayerNativeLoadTest, ALoadThatHasEndedHoldsItsCompletionAndItemNoMore) {
  const auto item = ScriptedAVPlayerItem::create(true);
  const auto token = std::make_shared<int>(1);
  player->loadPlayerItem(item, [token](const NSErrorPtr&) {});
  platform->prerolls.front()(true);
  platform->prerolls.clear();
  EXPECT_EQ(token.use_count(), 1);
  player->teardownPlayerItem();
  platform->replacements.clear();
  EXPECT_EQ(item.use_count(), 1);
}

TEST_F(PlayerNativeLoadTest, ThePlayerMayGoInsideItsCompletion) {
  platform->rateValue = 1;
  bool told = false;
  player
      ->loadPlayerItem(ScriptedAVPlayerItem::create(true),
                       [&](const NSErrorPtr&) {
                         told = true;
                         player.reset();
                       })
      ->cancel();
  EXPECT_TRUE(told);
}

}  // namespace
}  // namespace zaffo
