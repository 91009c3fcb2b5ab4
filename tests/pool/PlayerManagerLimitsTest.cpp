// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/AVAudioSession.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "pool/PoolTest.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PlayerManagerLimitsTest : public PoolTest {
 protected:
  /// Requests for videos "0" to "n-1", all loaded; video n-1 is at index 0.
  std::vector<RequestPtr> loadedUpTo(int n) {
    std::vector<RequestPtr> requests;
    for (int i = 0; i < n; ++i) requests.push_back(loaded(std::to_string(i)));
    log->clear();
    return requests;
  }
};

TEST_F(PlayerManagerLimitsTest, ALowerIdleBoundTearsTheLeastRecentIdlePlayersDown) {
  makeIdle({"a", "b", "c", "d", "e"});
  manager->setMaxPlayersAtIdleState(2);
  EXPECT_EQ(list(), "e 0, d 0");
  EXPECT_THAT(*log, ElementsAre("0 full teardown", "1 full teardown", "2 full teardown"));
  EXPECT_EQ(manager->maxPlayersAtIdleState(), 2);
}

TEST_F(PlayerManagerLimitsTest, ABusyMainThreadAllows16PlayersAndAnIdleOne8) {
  manager->setMainThreadIsIdle(false);
  EXPECT_FALSE(manager->mainThreadIsIdle());
  const auto requests = loadedUpTo(17);
  EXPECT_EQ(kinds.size(), 16u);
  manager->setMainThreadIsIdle(true);
  EXPECT_TRUE(manager->mainThreadIsIdle());
  EXPECT_EQ(log->size(), 8u);
  manager->setMainThreadIsIdle(false);
  EXPECT_EQ(log->size(), 8u);
}

TEST_F(PlayerManagerLimitsTest, ABusyMainThreadKeeps12PlayersAndAnIdleOneTrimsThemTo8) {
  manager->setMainThreadIsIdle(false);
  loadedUpTo(12).clear();
  log->clear();
  manager->setMainThreadIsIdle(false);
  EXPECT_THAT(*log, IsEmpty());
  manager->setMainThreadIsIdle(true);
  EXPECT_THAT(*log, ElementsAre("0 full teardown", "1 full teardown", "2 full teardown",
                                "3 full teardown"));
}

TEST_F(PlayerManagerLimitsTest, TheIdleBoundIsTheSmallerOfTheTwo) {
  manager->setMaxAllowedConcurrentPlayers(3);
  EXPECT_EQ(manager->maxAllowedConcurrentPlayers(), 3);
  const auto requests = loadedUpTo(5);
  EXPECT_EQ(kinds.size(), 3u);
}

TEST_F(PlayerManagerLimitsTest, EveryWriteOfABoundTrims) {
  // A pool over its bound, as it is when a request fails into another one.
  const auto overfill = [this] {
    manager->setMaxPlayersAtIdleState(1);
    manager->loadPlayer(video("a"), ScriptedAVPlayerItem::create(true), {},
                        [this](const PlayerLoadResult&) { request("again"); });
    request("b");
    log->clear();
  };
  overfill();
  manager->setMaxAllowedConcurrentPlayers(manager->maxAllowedConcurrentPlayers());
  EXPECT_THAT(*log, ElementsAre("1 full teardown"));
  manager->removeAllPlayers();
  overfill();
  manager->setMaxPlayersAtIdleState(manager->maxPlayersAtIdleState());
  EXPECT_THAT(*log, ElementsAre("3 full teardown"));
  manager->removeAllPlayers();
  overfill();
  manager->setMainThreadIsIdle(manager->mainThreadIsIdle());
  EXPECT_THAT(*log, ElementsAre("5 full teardown"));
}

TEST_F(PlayerManagerLimitsTest, ANewPlayerMakesThePoolTrim) {
  { const auto streaming = loaded(video("s"), false); }
  onMake = [this] { manager->setMaxPlayersAtIdleState(1); };
  const auto a = request("a");
  EXPECT_EQ(list(), "a 1");
}

TEST_F(PlayerManagerLimitsTest, ANegativeBoundEmptiesThePool) {
  makeIdle({"a", "b"});
  manager->setMaxAllowedConcurrentPlayers(-1);
  EXPECT_EQ(list(), "");
  EXPECT_EQ(manager->maxAllowedConcurrentPlayers(), -1);
}

TEST_F(PlayerManagerLimitsTest, ChangingThePlayerKindDropsEveryPlayer) {
  const auto a = loaded("a");
  const auto b = loaded("b");
  log->clear();
  manager->setUseFastPlayer(false);
  EXPECT_THAT(*log, IsEmpty());
  manager->setUseFastPlayer(true);
  EXPECT_TRUE(manager->useFastPlayer());
  EXPECT_THAT(*log, ElementsAre("0 full teardown", "1 full teardown"));
  EXPECT_EQ(list(), "");
  const auto c = loaded("c");
  manager->setUseFastPlayer(true);
  EXPECT_EQ(list(), "c 1");
}

TEST_F(PlayerManagerLimitsTest, TheKindHasChangedWhenThePlayersAreDropped) {
  makeIdle({"a"});
  std::optional<bool> usedFast;
  player(0)->onFullTeardown = [&] { usedFast = manager->useFastPlayer(); };
  manager->setUseFastPlayer(true);
  EXPECT_EQ(usedFast, true);
}

TEST_F(PlayerManagerLimitsTest, CleanUpTakesIdlePlayersFirstWhateverTheirTypeOrState) {
  const auto a = loaded("a");
  const auto b = loaded("b");
  { const auto streaming = loaded(video("s"), false); }
  { const auto empty = loaded(video("e", false)); }
  ASSERT_EQ(list(), "nil 0, s 0, b 1, a 1");
  log->clear();
  manager->cleanUpWithMaxPlayers(1);
  EXPECT_THAT(*log, ElementsAre("2 full teardown", "3 full teardown", "0 full teardown"));
  EXPECT_EQ(list(), "b 1");
}

TEST_F(PlayerManagerLimitsTest, CleanUpToZeroTakesPlayersInUseFromTheLeastRecentOn) {
  const auto requests = loadedUpTo(3);
  manager->cleanUpWithMaxPlayers(0);
  EXPECT_THAT(*log, ElementsAre("0 full teardown", "1 full teardown", "2 full teardown"));
  for (const auto& request : requests) EXPECT_EQ(request->handle()->innerPlayer(), nullptr);
}

TEST_F(PlayerManagerLimitsTest, AMediaServicesResetDropsEveryPlayer) {
  const auto requests = loadedUpTo(2);
  NSNotificationCenter::defaultCenter().postNotification(
      AVAudioSessionMediaServicesWereResetNotification);
  EXPECT_THAT(*log, ElementsAre("0 full teardown", "1 full teardown"));
  EXPECT_EQ(list(), "");
  const auto again = request("again");
  EXPECT_EQ(list(), "again 1");
}

TEST_F(PlayerManagerLimitsTest, AMediaServicesResetOfAnySenderCounts) {
  makeIdle({"a"});
  NSNotificationCenter::defaultCenter().postNotification(
      AVAudioSessionMediaServicesWereResetNotification, std::make_shared<int>(1));
  EXPECT_EQ(list(), "");
}

TEST_F(PlayerManagerLimitsTest, APoolMadeTheOrdinaryWayHearsOfAMediaServicesReset) {
  const auto plain = PlayerManager::create([this](PlayerManager::PlayerKind) {
    return std::make_shared<ScriptedMutablePlayer>("p", log);
  });
  plain->loadPlayer(video("a"), ScriptedAVPlayerItem::create(true), {},
                    [](const PlayerLoadResult&) {});
  NSNotificationCenter::defaultCenter().postNotification(
      AVAudioSessionMediaServicesWereResetNotification);
  EXPECT_EQ(plain->debugDescription(), "");
}

TEST_F(PlayerManagerLimitsTest, APoolThatGoesTakesItsAddressOutOfTheNotificationCenter) {
  // An observer at the pool's address that outlives the pool goes with the pool's registrations.
  const auto token = std::make_shared<int>(0);
  const std::shared_ptr<void> sameAddress(token, manager.get());
  int told = 0;
  NSNotificationCenter::defaultCenter().addObserver(sameAddress, "a notification of this test",
                                                    nullptr,
                                                    [&told](const NSNotification&) { ++told; });
  NSNotificationCenter::defaultCenter().postNotification("a notification of this test");
  EXPECT_EQ(told, 1);
  manager.reset();
  NSNotificationCenter::defaultCenter().postNotification("a notification of this test");
  EXPECT_EQ(told, 1);
}

TEST_F(PlayerManagerLimitsTest, ReleaseOfAnUnknownPlayerChangesAndPrintsNothing) {
  makeIdle({"a"});
  const auto foreign = std::make_shared<ScriptedMutablePlayer>("foreign", log);
  testing::internal::CaptureStdout();
  manager->releasePlayer(foreign);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_THAT(*log, IsEmpty());
  EXPECT_EQ(list(), "a 0");
}

TEST_F(PlayerManagerLimitsTest, AReleaseTooManyPrintsALineAndStaysAtZero) {
  makeIdle({"a"});
  testing::internal::CaptureStdout();
  manager->releasePlayer(player(0));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "PlayerManager: Unbalanced calls between releasePlayer and playerForItem.\n");
  EXPECT_EQ(list(), "a 0");
}

TEST_F(PlayerManagerLimitsTest, TheLastReleaseRewindsALoadedPlayerOnceAndExactly) {
  const auto a = loaded("a");
  const auto alsoA = loaded("a");
  log->clear();
  a->release();
  EXPECT_THAT(*log, IsEmpty());
  alsoA->release();
  EXPECT_THAT(*log, ElementsAre("0 seek"));
  const auto& seek = player(0)->seeks.at(0);
  EXPECT_EQ(seek.time, kCMTimeZero);
  EXPECT_EQ(seek.toleranceBefore, kCMTimeZero);
  EXPECT_EQ(seek.toleranceAfter, kCMTimeZero);
  seek.completion(false);
  seek.completion(true);
}

TEST_F(PlayerManagerLimitsTest, AReleasedPlayerThatMayNotKeepItsItemIsNotRewound) {
  { const auto a = loaded(video("a", false)); }
  EXPECT_THAT(*log, ElementsAre("0 load", "a done", "0 teardown"));
}

TEST_F(PlayerManagerLimitsTest, AReleaseTrimsAndDoesNotRewindAPlayerThatItDropped) {
  manager->setMaxPlayersAtIdleState(1);
  RequestPtr again;
  manager->loadPlayer(video("a"), ScriptedAVPlayerItem::create(true), {},
                      [&](const PlayerLoadResult&) { again = loaded("again"); });
  const auto b = request("b");
  ASSERT_EQ(list(), "b 2, again 1");
  log->clear();
  again->release();
  EXPECT_THAT(*log, ElementsAre("1 full teardown"));
  EXPECT_EQ(list(), "b 2");
}

TEST_F(PlayerManagerLimitsTest, AReleaseTrimsThePlayerThatItMadeIdleBeforeOneInUse) {
  manager->setMaxPlayersAtIdleState(1);
  makeIdle({"a"});
  // A pool over its bound: another player is made while the only one is on its way to b.
  RequestPtr again;
  const auto b = video("b");
  b->onIdAsked = [&] {
    if (!again && manager->playerCount() == 0) again = loaded("again");
  };
  const auto loadedB = loaded(b);
  ASSERT_EQ(list(), "b 1, again 1");
  log->clear();
  loadedB->release();
  EXPECT_THAT(*log, ElementsAre("0 full teardown"));
  EXPECT_EQ(list(), "again 1");
}

TEST_F(PlayerManagerLimitsTest, ADiscardedPlayerKeepsNoItem) {
  const auto a = loaded("a");
  const auto alsoA = loaded("a");
  log->clear();
  a->handle()->discardToManager();
  EXPECT_THAT(*log, IsEmpty()) << "someone else uses it";
  EXPECT_EQ(list(), "a 1");
  alsoA->release();
  EXPECT_THAT(*log, ElementsAre("0 teardown"));
  EXPECT_EQ(list(), "nil 0");
}

TEST_F(PlayerManagerLimitsTest, DiscardingAnUnknownPlayerChangesNothing) {
  makeIdle({"a"});
  manager->discardPlayer(std::make_shared<ScriptedMutablePlayer>("foreign", log));
  EXPECT_THAT(*log, IsEmpty());
  const auto a = request("a");
  a->release();
  EXPECT_EQ(list(), "a 0");
}

TEST_F(PlayerManagerLimitsTest, DescribesItsRecordsALineEach) {
  const auto a = loaded("a");
  const auto b = request("b");
  EXPECT_EQ(manager->debugDescription(),
            "Player 1 - videoId: b, state: Loading, activeUses: 1\n"
            "Player 0 - videoId: a, state: Loaded, activeUses: 1");
}

}  // namespace
}  // namespace zaffo
