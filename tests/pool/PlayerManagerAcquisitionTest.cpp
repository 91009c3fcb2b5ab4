// SPDX-License-Identifier: Apache-2.0
#include "pool/PoolTest.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Kind = PlayerManager::PlayerKind;

constexpr auto kFadeIn = AVPlayerItemLoaderOptions::fadeIn;
constexpr const char* kNoPlayer = "com.zaffoapp.co 500 No player available for this video";
constexpr const char* kReused =
    "com.zaffoapp.co 500 The player has been reused during loading. You can prevent that from "
    "happening by increasing the PlayerManager.maxAllowedConcurrentPlayers and/or "
    "PlayerManager.maxPlayersAtIdleState";

class PlayerManagerAcquisitionTest : public PoolTest {};

TEST_F(PlayerManagerAcquisitionTest, StartsWithItsDefaultsAndNoPlayer) {
  EXPECT_TRUE(manager->mainThreadIsIdle());
  EXPECT_EQ(manager->maxAllowedConcurrentPlayers(), 16);
  EXPECT_EQ(manager->maxPlayersAtIdleState(), 8);
  EXPECT_FALSE(manager->useFastPlayer());
  EXPECT_EQ(manager->debugDescription(), "");
}

TEST_F(PlayerManagerAcquisitionTest, NumbersItsPlayersFromZero) {
  const auto a = request("a");
  const auto b = request("b");
  EXPECT_EQ(manager->debugDescription(),
            "Player 1 - videoId: b, state: Loading, activeUses: 1\n"
            "Player 0 - videoId: a, state: Loading, activeUses: 1");
}

TEST_F(PlayerManagerAcquisitionTest, StateOfAnUnknownVideoIsNotLoaded) {
  const auto a = request("a");
  EXPECT_EQ(manager->playerState(video("b")), PlayerState::NotLoaded);
}

TEST_F(PlayerManagerAcquisitionTest, StateOfAVideoIsThatOfItsRecordWhateverTheOptions) {
  const auto a = request(video("a"), kFadeIn);
  EXPECT_EQ(manager->playerState(video("a")), PlayerState::Loading);
  player(0)->finishLoad();
  EXPECT_EQ(manager->playerState(video("a")), PlayerState::Loaded);
}

TEST_F(PlayerManagerAcquisitionTest, StateOfAVideoIsThatOfItsMostRecentRecord) {
  const auto plain = loaded("a");
  const auto fading = request(video("a"), kFadeIn);
  EXPECT_EQ(manager->playerState(video("a")), PlayerState::Loading);
  const auto plainAgain = manager->player(video("a"), {});
  EXPECT_EQ(manager->playerState(video("a")), PlayerState::Loaded);
}

TEST_F(PlayerManagerAcquisitionTest, StateOfAVideoIsNotLoadedWhenItsMostRecentRecordIs) {
  const auto plain = loaded("a");
  const auto fading = request(video("a"), kFadeIn);
  const auto keepsTheVideo = manager->player(video("a"), kFadeIn);
  player(1)->finishLoad(NSError::create("player", 7));
  ASSERT_EQ(list(), "a 1, a 1");
  EXPECT_EQ(manager->playerState(video("a")), PlayerState::NotLoaded);
  const auto plainAgain = manager->player(video("a"), {});
  EXPECT_EQ(manager->playerState(video("a")), PlayerState::Loaded);
}

TEST_F(PlayerManagerAcquisitionTest, PlayerOfAnUnknownVideoFails) {
  const auto result = manager->player(video("a"), {});
  ASSERT_TRUE(result.error());
  EXPECT_EQ(result.error()->domain(), "com.zaffoapp.co");
  EXPECT_EQ(result.error()->code(), 500);
  EXPECT_EQ(result.error()->userInfo(),
            (NSError::UserInfo{{NSLocalizedDescriptionKey, "No player available for this video"}}));
  EXPECT_THAT(kinds, IsEmpty());
}

TEST_F(PlayerManagerAcquisitionTest, PlayerOfAVideoLoadedWithOtherOptionsFails) {
  const auto a = loaded("a");
  const auto result = manager->player(video("a"), kFadeIn);
  ASSERT_TRUE(result.error());
  EXPECT_EQ(result.error()->localizedDescription(), "No player available for this video");
  EXPECT_EQ(list(), "a 1");
}

TEST_F(PlayerManagerAcquisitionTest, PlayerOfALoadingVideoIsSharedAndMovesToTheFront) {
  const auto a = request("a");
  const auto b = request("b");
  const auto sameA = video("a");
  sameA->duration = CMTimeMake(1, 1);
  const auto result = manager->player(sameA, {});
  ASSERT_TRUE(result.success());
  EXPECT_EQ(result.player()->innerPlayer(), player(0));
  EXPECT_EQ(result.success()->itemDuration, CMTimeMake(5, 1)) << "of the video of the record";
  EXPECT_EQ(list(), "a 2, b 1");
}

TEST_F(PlayerManagerAcquisitionTest, PlayerSkipsRecordsThatAreNotLoaded) {
  const auto a = request("a");
  const auto alsoA = manager->player(video("a"), {});  // A use that keeps the video on failure.
  player(0)->finishLoad(NSError::create("broken", 1));
  EXPECT_EQ(list(), "a 1");
  EXPECT_TRUE(manager->player(video("a"), {}).failure());
}

TEST_F(PlayerManagerAcquisitionTest, ARecordThatHoldsTheVideoIsUsedWhateverItsItemType) {
  const auto local = loaded("a");
  const auto streaming = request(video("a"), {}, false);
  EXPECT_EQ(streaming->handle()->innerPlayer(), local->handle()->innerPlayer());
  EXPECT_EQ(list(), "a 2");
}

TEST_F(PlayerManagerAcquisitionTest, OtherOptionsGetAPlayerOfTheirOwn) {
  const auto plain = loaded("a");
  const auto fading = request(video("a"), kFadeIn);
  EXPECT_EQ(kinds.size(), 2u);
  EXPECT_EQ(list(), "a 1, a 1");
}

TEST_F(PlayerManagerAcquisitionTest, AnIdlePlayerWithTheVideoAndOtherOptionsIsReused) {
  makeIdle({"a"});
  const auto fading = request(video("a"), kFadeIn);
  EXPECT_THAT(*log, ElementsAre("0 cancel", "0 load"));
  EXPECT_EQ(list(), "a 1");
}

TEST_F(PlayerManagerAcquisitionTest, TakesTheLeastRecentlyUsedIdlePlayerBeforeMakingOne) {
  makeIdle({"a", "b", "c"});
  const auto d = request("d");
  EXPECT_EQ(player(0)->loads.size(), 2u);
  EXPECT_EQ(list(), "d 1, c 0, b 0");
  EXPECT_EQ(kinds.size(), 3u);
}

TEST_F(PlayerManagerAcquisitionTest, TakesNoIdlePlayerOfTheOtherItemType) {
  makeIdle({"a"});
  const auto streaming = request(video("b"), {}, false);
  EXPECT_EQ(kinds.size(), 2u);
  EXPECT_EQ(list(), "b 1, a 0");
}

TEST_F(PlayerManagerAcquisitionTest, PassesOverPlayersInUse) {
  const auto a = loaded("a");
  makeIdle({"b"});
  const auto c = request("c");
  EXPECT_EQ(list(), "c 1, a 1");
}

TEST_F(PlayerManagerAcquisitionTest, MakesPlayersUpToTheBound) {
  std::vector<RequestPtr> requests;
  for (int i = 0; i < 9; ++i) requests.push_back(request(std::to_string(i)));
  EXPECT_EQ(kinds.size(), 8u);
  EXPECT_EQ(list(), "8 2, 7 1, 6 1, 5 1, 4 1, 3 1, 2 1, 1 1");
}

TEST_F(PlayerManagerAcquisitionTest, AFullPoolTakesTheLeastRecentPlayerInUseAndFailsWhoWaitsForIt) {
  manager->setMaxPlayersAtIdleState(2);
  const auto a = request("a");
  const auto alsoA = request("a");
  const auto b = request("b");
  log->clear();
  const auto c = request("c");
  EXPECT_THAT(*log, ElementsAre("0 cancel", "a failed", "a failed", "0 load"));
  EXPECT_EQ(a->errorText(), kReused);
  EXPECT_EQ(alsoA->errorText(), kReused);
  EXPECT_EQ(c->completions, 0);
  EXPECT_EQ(kinds.size(), 2u);
}

TEST_F(PlayerManagerAcquisitionTest, AFullPoolTakesALoadedPlayerFromItsUsers) {
  manager->setMaxPlayersAtIdleState(1);
  const auto a = loaded("a");
  const auto b = request("b");
  player(0)->finishLoad();
  EXPECT_EQ(list(), "b 2") << "the use of the handle to a is still counted";
  EXPECT_EQ(*a->handle(), *b->handle());
  a->release();
  EXPECT_EQ(list(), "b 1");
}

TEST_F(PlayerManagerAcquisitionTest, AFullPoolTakesTheLastPlayerWhateverItsType) {
  manager->setMaxPlayersAtIdleState(1);
  makeIdle({"a"});
  const auto streaming = request(video("b"), {}, false);
  EXPECT_EQ(kinds.size(), 1u);
  EXPECT_EQ(list(), "b 1");
}

TEST_F(PlayerManagerAcquisitionTest, UsesOfRequestsThatLostTheirPlayerStayCounted) {
  // Their player is out of the list while they fail, so that giving the use back finds nothing.
  manager->setMaxPlayersAtIdleState(1);
  const auto a = request("a");
  const auto b = request("b");
  EXPECT_EQ(a->errorText(), kReused);
  EXPECT_EQ(list(), "b 2");
}

TEST_F(PlayerManagerAcquisitionTest, RemovingEveryPlayerClearsTheUsesOfRequestsThatLostTheirs) {
  manager->setMaxPlayersAtIdleState(1);
  const auto a = request("a");
  const auto b = request("b");
  ASSERT_EQ(list(), "b 2");
  manager->removeAllPlayers();
  const auto again = request("a");
  EXPECT_EQ(list(), "a 1");
}

TEST_F(PlayerManagerAcquisitionTest, MakingRoomDropsAnIdlePlayerOfTheOtherKindWhenThePoolIsFull) {
  manager->setMaxPlayersAtIdleState(3);
  const auto streaming = video("s");
  const auto waiting = request(streaming, {}, false);
  makeIdle({"a", "b"});
  ASSERT_EQ(list(), "b 0, a 0, s 1");
  const auto item = ScriptedAVPlayerItem::create(false);
  EXPECT_TRUE(manager->makeRoom(*item));
  EXPECT_EQ(list(), "b 0, s 1") << "the least recently used one";
  EXPECT_THAT(*log, ElementsAre("1 full teardown"));
  const auto other = request(video("t"), {}, false);
  EXPECT_EQ(waiting->completions, 0);
  EXPECT_EQ(list(), "t 1, b 0, s 1");
}

TEST_F(PlayerManagerAcquisitionTest, MakingRoomDropsNothingWhereThereIsSome) {
  manager->setMaxPlayersAtIdleState(2);
  makeIdle({"a"});
  EXPECT_TRUE(manager->makeRoom(*ScriptedAVPlayerItem::create(false))) << "below the bound";
  const auto used = request("b");
  EXPECT_TRUE(manager->makeRoom(*ScriptedAVPlayerItem::create(true))) << "an idle one of its kind";
  EXPECT_EQ(list(), "b 1");
  const auto other = request("c");
  EXPECT_FALSE(manager->makeRoom(*ScriptedAVPlayerItem::create(true))) << "all are in use";
  EXPECT_FALSE(manager->makeRoom(*ScriptedAVPlayerItem::create(false)));
  EXPECT_EQ(list(), "c 1, b 1");
  manager->setMaxPlayersAtIdleState(0);
  EXPECT_FALSE(manager->makeRoom(*ScriptedAVPlayerItem::create(true))) << "none is allowed";
}

TEST_F(PlayerManagerAcquisitionTest, ABoundOfZeroAnswersThatNoPlayerIsAvailable) {
  for (const std::int64_t bound : {0L, -3L}) {
    manager->setMaxPlayersAtIdleState(bound);
    const auto a = request("a");
    EXPECT_EQ(a->completions, 1);
    EXPECT_EQ(a->errorText(), kNoPlayer);
    EXPECT_EQ(a->command, ZFNoopCancelCommand::sharedInstance());
  }
  EXPECT_THAT(kinds, IsEmpty());
}

TEST_F(PlayerManagerAcquisitionTest, OnlyLocalItemsWithTheFastPlayerOnGetAFastPlayer) {
  const auto a = request(video("a"), {}, true);
  const auto b = request(video("b"), {}, false);
  EXPECT_THAT(kinds, ElementsAre(Kind::Native, Kind::Native));
  kinds.clear();
  manager->setUseFastPlayer(true);
  const auto c = request(video("c"), {}, false);
  const auto d = request(video("d"), {}, true);
  EXPECT_THAT(kinds, ElementsAre(Kind::Native, Kind::Fast));
}

TEST_F(PlayerManagerAcquisitionTest, AFactoryThatMakesNoPlayerIsFatal) {
  const auto none = [](Kind) -> std::shared_ptr<MutablePlayer> { return nullptr; };
  for (const auto& factory : {PlayerManager::PlayerFactory(none), PlayerManager::PlayerFactory()}) {
    manager = OpenPlayerManager::create(factory);
    EXPECT_DEATH(request("a"), "The pool's factory has made no player");
  }
}

TEST_F(PlayerManagerAcquisitionTest, TellsHowManyPlayersThereAre) {
  EXPECT_EQ(manager->playerCount(), 0);
  makeIdle({"a", "b"});
  const auto c = request(video("c"), {}, false);
  EXPECT_EQ(manager->playerCount(), 3);
  manager->setMaxPlayersAtIdleState(1);
  EXPECT_EQ(manager->playerCount(), 1);
}

TEST_F(PlayerManagerAcquisitionTest, DequeueTakesTheLeastRecentIdleRecordOfTheTypeOutOfTheList) {
  manager->setMaxPlayersAtIdleState(16);
  makeIdle({"a", "b"});
  { const auto streaming = loaded(video("s"), false); }
  const auto used = manager->player(video("a"), {});
  ASSERT_EQ(list(), "a 1, s 0, b 0");

  const auto streaming = manager->dequeueAvailablePlayer(PlayerSupportedItemType::Streaming);
  ASSERT_TRUE(streaming);
  EXPECT_EQ(streaming->video()->videoId(), "s");
  EXPECT_EQ(streaming->state(), PlayerState::Loaded);
  EXPECT_EQ(list(), "a 1, b 0");
  EXPECT_FALSE(manager->dequeueAvailablePlayer(PlayerSupportedItemType::Streaming));

  const auto any = manager->dequeueAvailablePlayer(std::nullopt);
  ASSERT_TRUE(any);
  EXPECT_EQ(any->video()->videoId(), "b");
  EXPECT_FALSE(manager->dequeueAvailablePlayer(std::nullopt));
}

TEST_F(PlayerManagerAcquisitionTest, IsKnownAsZFPlayerManager) {
  EXPECT_TRUE((std::is_same_v<ZFPlayerManager, PlayerManager>));
}

}  // namespace
}  // namespace zaffo
