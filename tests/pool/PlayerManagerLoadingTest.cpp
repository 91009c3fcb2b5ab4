// SPDX-License-Identifier: Apache-2.0
#include "pool/PoolTest.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PlayerManagerLoadingTest : public PoolTest {};

TEST_F(PlayerManagerLoadingTest, TwoRequestsForAVideoShareOnePlayerAndOneLoad) {
  const auto first = request("a");
  const auto second = request("a");
  EXPECT_EQ(list(), "a 2");
  EXPECT_THAT(*log, ElementsAre("0 load"));
  log->clear();
  player(0)->finishLoad();
  EXPECT_EQ(first->completions, 1);
  EXPECT_EQ(second->completions, 1);
  EXPECT_NE(first->handle(), second->handle());
  EXPECT_EQ(first->handle()->innerPlayer(), player(0));
  EXPECT_EQ(second->handle()->innerPlayer(), player(0));
  EXPECT_EQ(list(), "a 2");
  first->release();
  EXPECT_EQ(list(), "a 1");
}

TEST_F(PlayerManagerLoadingTest, CompletionsRunInTheOrderOfTheCalls) {
  std::vector<int> order;
  for (int i = 0; i < 4; ++i) {
    manager->loadPlayer(video("a"), ScriptedAVPlayerItem::create(true), {},
                        [&order, i](const PlayerLoadResult&) { order.push_back(i); });
  }
  player(0)->finishLoad();
  EXPECT_THAT(order, ElementsAre(0, 1, 2, 3));
}

TEST_F(PlayerManagerLoadingTest, ALoadedVideoIsAnsweredInsideTheCall) {
  makeIdle({"a"});
  const auto a = request("a");
  EXPECT_THAT(*log, ElementsAre("a done"));
  EXPECT_EQ(a->command, ZFNoopCancelCommand::sharedInstance());
  EXPECT_EQ(a->handle()->innerPlayer(), player(0));
  EXPECT_EQ(a->result->success()->itemDuration, CMTimeMake(5, 1));
  EXPECT_EQ(list(), "a 1");
}

TEST_F(PlayerManagerLoadingTest, GivesTheItemOfTheFirstRequestToThePlayer) {
  const auto item = ScriptedAVPlayerItem::create(true);
  const auto ignored = ScriptedAVPlayerItem::create(true);
  const auto completion = [](const PlayerLoadResult&) {};
  manager->loadPlayer(video("a"), item, {}, completion);
  manager->loadPlayer(video("a"), ignored, {}, completion);
  EXPECT_EQ(player(0)->item, item);
  EXPECT_EQ(ignored.use_count(), 1);
}

TEST_F(PlayerManagerLoadingTest, ARequestWithoutAnItemFailsInsideTheCallAndSaysSo) {
  makeIdle({"a"});
  for (const auto* id : {"a", "b"}) {
    const auto request = std::make_shared<Request>();
    request->command = manager->loadPlayer(video(id), nullptr, {}, [&](const auto& result) {
      ++request->completions;
      request->result = result;
    });
    EXPECT_EQ(request->completions, 1);
    EXPECT_EQ(request->errorText(), "com.zaffoapp.co 500 No item was given for this video");
    EXPECT_EQ(request->command, ZFNoopCancelCommand::sharedInstance());
  }
  EXPECT_EQ(list(), "a 0");
}

TEST_F(PlayerManagerLoadingTest, AnEmptyCompletionLeavesTheVideoLoadedAndNoUse) {
  manager->loadPlayer(video("a"), ScriptedAVPlayerItem::create(true), {}, nullptr);
  EXPECT_EQ(list(), "a 1");
  player(0)->finishLoad();
  EXPECT_EQ(list(), "a 0");
  manager->loadPlayer(video("a"), ScriptedAVPlayerItem::create(true), {}, nullptr);
  EXPECT_EQ(list(), "a 0");
  EXPECT_EQ(manager->playerState(video("a")), PlayerState::Loaded);
}

TEST_F(PlayerManagerLoadingTest, AnEmptyCompletionIsAllowedWhereTheRequestFails) {
  manager->loadPlayer(video("a"), ScriptedAVPlayerItem::create(true), {}, nullptr);
  player(0)->finishLoad(NSError::create("player", 7));
  EXPECT_EQ(list(), "nil 0");
  manager->loadPlayer(video("a"), nullptr, {}, nullptr);
  manager->setMaxPlayersAtIdleState(0);
  manager->loadPlayer(video("a"), ScriptedAVPlayerItem::create(true), {}, nullptr);
  EXPECT_EQ(list(), "");
}

TEST_F(PlayerManagerLoadingTest, ASuccessCarriesTheDurationOfTheVideo) {
  const auto a = video("a");
  a->duration = CMTimeMake(1001, 30);
  const auto request = loaded(a);
  EXPECT_EQ(request->result->success()->itemDuration, CMTimeMake(1001, 30));
}

TEST_F(PlayerManagerLoadingTest, AFailedLoadGivesThePlayersErrorAndTheUseBack) {
  const auto error = NSError::create("player", 7);
  const auto first = request("a");
  const auto second = request("a");
  player(0)->finishLoad(error);
  EXPECT_EQ(first->result->error(), error);
  EXPECT_EQ(second->result->error(), error);
  EXPECT_EQ(manager->debugDescription(),
            "Player 0 - videoId: nil, state: NotLoaded, activeUses: 0");
}

TEST_F(PlayerManagerLoadingTest, AFailedRequestGivesItsUseBackBeforeItIsTold) {
  std::string listWhenTold;
  manager->loadPlayer(video("a"), ScriptedAVPlayerItem::create(true), {},
                      [&](const PlayerLoadResult&) { listWhenTold = list(); });
  player(0)->finishLoad(NSError::create("player", 7));
  EXPECT_EQ(listWhenTold, "nil 0");
}

TEST_F(PlayerManagerLoadingTest, AfterAFailureTheNextRequestLoadsAgain) {
  const auto failed = request("a");
  player(0)->finishLoad(NSError::create("player", 7));
  log->clear();
  const auto again = request("a");
  EXPECT_THAT(*log, ElementsAre("0 load"));
  player(0)->finishLoad();
  EXPECT_TRUE(again->handle());
}

TEST_F(PlayerManagerLoadingTest, ACancelledRequestIsNeverToldAndGivesItsUseBack) {
  const auto cancelled = request("a");
  const auto other = request("a");
  cancelled->command->cancel();
  EXPECT_EQ(list(), "a 1");
  player(0)->finishLoad();
  EXPECT_EQ(cancelled->completions, 0);
  EXPECT_EQ(other->completions, 1);
  EXPECT_EQ(list(), "a 1");
}

TEST_F(PlayerManagerLoadingTest, CancellingTheOnlyRequestEndsTheLoad) {
  const auto a = request("a");
  log->clear();
  a->command->cancel();
  EXPECT_THAT(*log, ElementsAre("0 cancel"));
  EXPECT_EQ(manager->debugDescription(),
            "Player 0 - videoId: nil, state: NotLoaded, activeUses: 0");
}

TEST_F(PlayerManagerLoadingTest, CancellingTwiceReleasesOnce) {
  const auto a = request("a");
  const auto b = request("a");
  a->command->cancel();
  a->command->cancel();
  EXPECT_EQ(list(), "a 1");
}

TEST_F(PlayerManagerLoadingTest, ALateCancelAfterASuccessReleasesNothing) {
  const auto a = request("a");
  player(0)->finishLoad();
  a->command->cancel();
  EXPECT_EQ(list(), "a 1");
  EXPECT_EQ(a->handle()->innerPlayer(), player(0));
}

TEST_F(PlayerManagerLoadingTest, ALateCancelAfterAFailureReleasesNothing) {
  const auto a = request("a");
  player(0)->finishLoad(NSError::create("player", 7));
  testing::internal::CaptureStdout();
  a->command->cancel();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(a->completions, 1);
}

TEST_F(PlayerManagerLoadingTest, ALoadThatEndsAtOnceCompletesInsideTheCall) {
  playersLoadAtOnce = true;
  const auto a = request("a");
  EXPECT_THAT(*log, ElementsAre("0 load", "a done"));
  EXPECT_NE(a->command, ZFNoopCancelCommand::sharedInstance());
}

TEST_F(PlayerManagerLoadingTest, TheCommandOfALoadThatEndedAtOnceStaysUntilAReuseCancelsIt) {
  playersLoadAtOnce = true;
  { const auto a = request("a"); }
  const auto record = manager->dequeueAvailablePlayer(std::nullopt);
  EXPECT_EQ(record->state(), PlayerState::Loaded);
  EXPECT_NE(record->loadCommand(), nullptr);
  log->clear();
  record->reuse(video("b"), {});
  EXPECT_THAT(*log, ElementsAre("0 cancel"));
}

TEST_F(PlayerManagerLoadingTest, AnItemThatIsLoadedInPlaceOfADiscardedOneIsKept) {
  const auto failed = request("a");
  manager->player(video("a"), {}).player()->discardToManager();
  auto keepsTheVideo = manager->player(video("a"), {}).player();
  player(0)->finishLoad(NSError::create("player", 7));
  ASSERT_EQ(list(), "a 1");
  auto again = request("a");
  player(0)->finishLoad();
  again.reset();
  keepsTheVideo.reset();
  EXPECT_EQ(list(), "a 0");
  EXPECT_EQ(manager->playerState(video("a")), PlayerState::Loaded);
}

TEST_F(PlayerManagerLoadingTest, TheCommandOfALoadThatEndsLaterIsDropped) {
  auto a = request("a");
  player(0)->finishLoad();
  a.reset();
  const auto record = manager->dequeueAvailablePlayer(std::nullopt);
  EXPECT_EQ(record->state(), PlayerState::Loaded);
  EXPECT_EQ(record->loadCommand(), nullptr);
}

TEST_F(PlayerManagerLoadingTest, ALoadThatFailsAtOnceLeavesThePlayerEmptyAndUsable) {
  const auto error = NSError::create("player", 7);
  manager = OpenPlayerManager::create([this, error](PlayerManager::PlayerKind) {
    auto player = std::make_shared<ScriptedMutablePlayer>("p", log);
    player->loadsAtOnce = true;
    player->errorAtOnce = error;
    return player;
  });
  const auto a = request("a");
  EXPECT_EQ(a->result->error(), error);
  EXPECT_EQ(list(), "nil 0");
  const auto b = request("b");
  EXPECT_THAT(*log, ElementsAre("p load", "a failed", "p cancel", "p load", "b failed"));
}

TEST_F(PlayerManagerLoadingTest, TheRecordIsUpToDateWhenTheCompletionsRun) {
  PlayerState state = PlayerState::NotLoaded;
  const auto a = video("a");
  manager->loadPlayer(a, ScriptedAVPlayerItem::create(true), {},
                      [&](const PlayerLoadResult&) { state = manager->playerState(a); });
  EXPECT_EQ(manager->playerState(a), PlayerState::Loading);
  player(0)->finishLoad();
  EXPECT_EQ(state, PlayerState::Loaded);
}

TEST_F(PlayerManagerLoadingTest, AHandleDroppedInsideTheCompletionGivesItsUseBackAtOnce) {
  manager->loadPlayer(video("a"), ScriptedAVPlayerItem::create(true), {},
                      [](const PlayerLoadResult&) {});
  player(0)->finishLoad();
  EXPECT_EQ(list(), "a 0");
}

TEST_F(PlayerManagerLoadingTest, ARequestMadeInsideAFailedCompletionGetsAPlayer) {
  manager->setMaxPlayersAtIdleState(1);
  RequestPtr retry;
  manager->loadPlayer(video("a"), ScriptedAVPlayerItem::create(true), {},
                      [&](const PlayerLoadResult&) { retry = request("a"); });
  const auto b = request("b");
  ASSERT_TRUE(retry);
  player(1)->finishLoad();
  player(0)->finishLoad();
  EXPECT_TRUE(retry->handle());
  EXPECT_TRUE(b->handle());
}

TEST_F(PlayerManagerLoadingTest, NobodyIsToldWhenThePoolDropsThePlayerBeforeTheLoadEnds) {
  const auto a = request("a");
  const auto kept = player(0);
  manager->removeAllPlayers();
  kept->finishLoad();
  EXPECT_EQ(a->completions, 0);
  a->command->cancel();
  EXPECT_EQ(a->completions, 0);
}

TEST_F(PlayerManagerLoadingTest, CancellingWhatThePoolHasDroppedDoesNothing) {
  const auto a = request("a");
  manager->removeAllPlayers();
  log->clear();
  a->command->cancel();
  EXPECT_THAT(*log, testing::IsEmpty());
  EXPECT_EQ(a->completions, 0);
}

TEST_F(PlayerManagerLoadingTest, NobodyIsToldWhenThePoolHasGoneBeforeTheLoadEnds) {
  const auto a = request("a");
  const auto kept = player(0);
  manager.reset();
  kept->finishLoad();
  EXPECT_EQ(a->completions, 0);
  a->command->cancel();
}

TEST_F(PlayerManagerLoadingTest, NobodyIsToldWhenOnlyTheRecordIsLeftOfThePool) {
  const auto a = request("a");
  manager->releasePlayer(player(0));  // Makes the record idle, so that it can be taken out.
  const auto record = manager->dequeueAvailablePlayer(std::nullopt);
  ASSERT_EQ(record->loadCompletionHandlers().size(), 1u);
  manager.reset();
  record->notifyCompletionHandlers(nullptr);
  EXPECT_EQ(a->completions, 0);
}

TEST_F(PlayerManagerLoadingTest, ACommandThatIsKeptKeepsNoPlayerAlive) {
  const auto a = request("a");
  manager->removeAllPlayers();
  EXPECT_EQ(player(0), nullptr);
}

TEST_F(PlayerManagerLoadingTest, APoolThatGoesTearsItsPlayersDownAndIsHeldByNobody) {
  const auto a = loaded("a");
  const auto b = request("b");
  log->clear();
  const std::weak_ptr<PlayerManager> weak = manager;
  EXPECT_EQ(manager.use_count(), 1);
  manager.reset();
  EXPECT_TRUE(weak.expired());
  EXPECT_THAT(*log, ElementsAre("0 full teardown", "1 full teardown"));
  EXPECT_EQ(player(0), nullptr);
  EXPECT_EQ(player(1), nullptr);
  EXPECT_EQ(a->handle()->innerPlayer(), nullptr);
}

}  // namespace
}  // namespace zaffo
