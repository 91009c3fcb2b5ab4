// SPDX-License-Identifier: Apache-2.0
#include "native/NativeTest.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PlayerNativeTest : public NativeTest {};

TEST_F(PlayerNativeTest, ConfiguresNothingWhenItIsMade) {
  EXPECT_THAT(platform->replacements, IsEmpty());
  EXPECT_THAT(platform->observations, IsEmpty());
  EXPECT_THAT(platform->prerolls, IsEmpty());
  EXPECT_EQ(platform->statusReads, 0);
  EXPECT_EQ(platform->rateValue, 0);
  EXPECT_EQ(player->playerItem(), nullptr);
}

TEST_F(PlayerNativeTest, ShowsThePlatformPlayerInOneViewAlways) {
  const auto view = std::dynamic_pointer_cast<PlayerNativeOutputView>(player->outputView());
  ASSERT_TRUE(view);
  EXPECT_EQ(view->playerLayer()->player(), platform);
  EXPECT_EQ(player->outputView(), view);
}

TEST_F(PlayerNativeTest, PassesRateAndVolumeOn) {
  player->setRate(0.5f);
  player->setVolume(0.25f);
  EXPECT_EQ(platform->rateValue, 0.5f);
  EXPECT_EQ(platform->volumeValue, 0.25f);
  platform->rateValue = 1;
  platform->volumeValue = 0.75f;
  EXPECT_EQ(player->rate(), 1);
  EXPECT_EQ(player->volume(), 0.75f);
}

TEST_F(PlayerNativeTest, ReadsTheTimeAndZeroForOneThatIsNotDefinite) {
  platform->timeValue = CMTimeMake(7, 2);
  EXPECT_EQ(player->currentTime(), CMTimeMake(7, 2));
  platform->timeValue = kCMTimeInvalid;
  EXPECT_EQ(player->currentTime(), kCMTimeZero);
  platform->timeValue = kCMTimeIndefinite;
  EXPECT_EQ(player->currentTime(), kCMTimeZero);
  platform->timeValue = kCMTimePositiveInfinity;
  EXPECT_EQ(player->currentTime(), kCMTimePositiveInfinity) << "valid and definite";
}

TEST_F(PlayerNativeTest, SettingTheTimeSeeksWithThePlatformsOwnTolerances) {
  player->setCurrentTime(CMTimeMake(3, 1));
  EXPECT_THAT(platform->plainSeeks, ElementsAre(CMTimeMake(3, 1)));
  EXPECT_THAT(platform->seeks, IsEmpty());
}

TEST_F(PlayerNativeTest, PassesASeekOnWithAllItsArgumentsAndTheFinishedFlag) {
  std::vector<bool> finished;
  player->seekToTime(CMTimeMake(3, 1), CMTimeMake(1, 1), CMTimeMake(2, 1),
                     [&](bool f) { finished.push_back(f); });
  ASSERT_EQ(platform->seeks.size(), 1u);
  const auto& seek = platform->seeks.front();
  EXPECT_EQ(seek.time, CMTimeMake(3, 1));
  EXPECT_EQ(seek.toleranceBefore, CMTimeMake(1, 1));
  EXPECT_EQ(seek.toleranceAfter, CMTimeMake(2, 1));
  seek.completion(true);
  seek.completion(false);
  EXPECT_THAT(finished, ElementsAre(true, false));
}

TEST_F(PlayerNativeTest, ObservesBoundariesOnTheMainQueueAndTellsThePresentTime) {
  std::vector<CMTime> told;
  const auto command =
      player->addTimeObserver(std::vector<CMTime>{CMTimeMake(2, 1), CMTimeMake(1, 1)},
                              [&](CMTime now) { told.push_back(now); });
  ASSERT_EQ(platform->observations.size(), 1u);
  const auto observation = platform->observations.front();
  EXPECT_THAT(observation->times, ElementsAre(CMTimeMake(2, 1), CMTimeMake(1, 1)));
  EXPECT_EQ(observation->queue, dispatch_get_main_queue());
  platform->timeValue = CMTimeMake(21, 10);
  observation->block();
  EXPECT_THAT(told, ElementsAre(CMTimeMake(21, 10)));
  command->cancel();
  EXPECT_THAT(platform->observations, IsEmpty());
}

TEST_F(PlayerNativeTest, ASingleTimeInBracesIsABoundary) {
  const auto command = player->addTimeObserver({CMTimeMake(2, 1)}, [](CMTime) {});
  ASSERT_EQ(platform->observations.size(), 1u);
  EXPECT_THAT(platform->observations.front()->times, ElementsAre(CMTimeMake(2, 1)));
  EXPECT_FALSE(platform->observations.front()->timeBlock);
}

TEST_F(PlayerNativeTest, ABoundaryBlockThatOutlivesThePlatformPlayerTellsNothing) {
  bool told = false;
  const auto command =
      player->addTimeObserver(std::vector<CMTime>{kCMTimeZero}, [&](CMTime) { told = true; });
  const auto observation = platform->observations.front();
  player.reset();
  const std::weak_ptr<AVPlayer> weak = platform;
  platform.reset();
  ASSERT_TRUE(weak.expired()) << "the registration does not keep the platform player";
  observation->block();
  EXPECT_FALSE(told);
  command->cancel();
}

TEST_F(PlayerNativeTest, ObservesPeriodsOnTheMainQueueWithTheHandlerItself) {
  std::vector<CMTime> told;
  const auto command =
      player->addTimeObserver(CMTimeMake(1, 4), [&](CMTime now) { told.push_back(now); });
  ASSERT_EQ(platform->observations.size(), 1u);
  const auto observation = platform->observations.front();
  EXPECT_EQ(observation->interval, CMTimeMake(1, 4));
  EXPECT_EQ(observation->queue, dispatch_get_main_queue());
  observation->timeBlock(CMTimeMake(9, 4));
  EXPECT_THAT(told, ElementsAre(CMTimeMake(9, 4)));
  command->cancel();
  command->cancel();
  EXPECT_EQ(platform->removals, 1);
}

TEST_F(PlayerNativeTest, TimeObserversOutliveTheirCommandAndTeardown) {
  (void)player->addTimeObserver(CMTimeMake(1, 4), [](CMTime) {});
  player->teardownPlayerItem();
  player->fullTeardown();
  EXPECT_EQ(platform->removals, 0);
}

TEST_F(PlayerNativeTest, TeardownDropsTheItemAndKeepsThePlayer) {
  player->loadPlayerItem(ScriptedAVPlayerItem::create(true), nullptr);
  platform->replacements.clear();
  player->teardownPlayerItem();
  EXPECT_THAT(platform->replacements, ElementsAre(nullptr));
  EXPECT_EQ(player->playerItem(), nullptr);
  const auto item = ScriptedAVPlayerItem::create(true);
  player->loadPlayerItem(item, nullptr);
  EXPECT_EQ(player->playerItem(), item);
}

TEST_F(PlayerNativeTest, FullTeardownDropsTheItemThePlatformPlayerAndItsPicture) {
  const auto view = std::dynamic_pointer_cast<PlayerNativeOutputView>(player->outputView());
  player->loadPlayerItem(ScriptedAVPlayerItem::create(true), nullptr);
  player->fullTeardown();
  EXPECT_EQ(platform->replacements.back(), nullptr);
  EXPECT_EQ(view->playerLayer()->player(), nullptr);
  EXPECT_EQ(player->outputView(), view);
  EXPECT_EQ(platform.use_count(), 1) << "nothing holds the platform player";
}

TEST_F(PlayerNativeTest, ADisposedPlayerAnswersWithNeutralValues) {
  player->fullTeardown();
  player->fullTeardown();
  player->teardownPlayerItem();
  player->setRate(1);
  player->setVolume(0.5f);
  player->setCurrentTime(CMTimeMake(1, 1));
  EXPECT_EQ(player->rate(), 0);
  EXPECT_EQ(player->volume(), 0);
  EXPECT_EQ(player->currentTime(), kCMTimeZero);
  EXPECT_EQ(player->playerItem(), nullptr);
  EXPECT_EQ(platform->rateValue, 0);
  EXPECT_EQ(platform->volumeValue, 1);
  EXPECT_THAT(platform->plainSeeks, IsEmpty());
}

TEST_F(PlayerNativeTest, ADisposedPlayerNeverCallsASeeksCompletion) {
  player->fullTeardown();
  bool called = false;
  player->seekToTime(kCMTimeZero, kCMTimeZero, kCMTimeZero, [&](bool) { called = true; });
  time.advance(kNanosecondsPerSecond);
  EXPECT_FALSE(called);
  EXPECT_THAT(platform->seeks, IsEmpty());
}

TEST_F(PlayerNativeTest, ADisposedPlayerObservesNothingAndItsCommandsDoNothing) {
  player->fullTeardown();
  const auto boundary = player->addTimeObserver(std::vector<CMTime>{kCMTimeZero}, [](CMTime) {});
  const auto periodic = player->addTimeObserver(CMTimeMake(1, 1), [](CMTime) {});
  ASSERT_TRUE(boundary);
  ASSERT_TRUE(periodic);
  boundary->cancel();
  periodic->cancel();
  EXPECT_THAT(platform->observations, IsEmpty());
  EXPECT_EQ(platform->removals, 0);
}

TEST_F(PlayerNativeTest, ItsEndTearsNothingDownAndLetsGoOfEverything) {
  const auto view = player->outputView();
  const auto item = waitingItem();
  player->loadPlayerItem(item, into(reports));
  const auto replacements = platform->replacements.size();
  player.reset();
  EXPECT_EQ(platform->replacements.size(), replacements);
  const int reads = item->statusReads;
  time.advance(10 * kInterval);
  EXPECT_EQ(item->statusReads, reads) << "the polling has ended";
  EXPECT_THAT(*reports, IsEmpty());
  EXPECT_EQ(view.use_count(), 1);
}

TEST(PlayerNativeDeathTest, NeedsAPlatformPlayer) {
  EXPECT_DEATH((void)PlayerNative::create(nullptr), "AVPlayer could not be created");
}

TEST(PlayerNativeConstants, PollsTenTimesASecond) {
  EXPECT_EQ(PlayerNative::pollingInterval, 0.1);
}

}  // namespace
}  // namespace zaffo
