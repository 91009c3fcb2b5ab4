// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/AVAudioSession.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "pool/PoolTest.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// What the pool calls comes back to it.
class PlayerManagerReentryTest : public PoolTest {
 protected:
  /// A request for `id` whose completion runs `inside`.
  ZFCancelCommandPtr requestThat(const std::string& id, std::function<void()> inside) {
    return manager->loadPlayer(video(id), ScriptedAVPlayerItem::create(true), {},
                               [inside = std::move(inside)](const PlayerLoadResult&) { inside(); });
  }

  static NSErrorPtr someError() { return NSError::create("player", 7); }
};

// Cancelling while others are told.

TEST_F(PlayerManagerReentryTest, ARequestCancelledByTheSuccessOfAnotherIsNotTold) {
  RequestPtr neighbour;
  auto handle = std::make_shared<std::shared_ptr<PlayerDecorator>>();
  manager->loadPlayer(video("a"), ScriptedAVPlayerItem::create(true), {},
                      [&, handle](const PlayerLoadResult& result) {
                        *handle = result.player();
                        neighbour->command->cancel();
                      });
  neighbour = request("a");
  player(0)->finishLoad();
  EXPECT_EQ(neighbour->completions, 0);
  EXPECT_EQ(list(), "a 1") << "the use of the handle";
  neighbour->command->cancel();
  EXPECT_EQ(list(), "a 1");
}

TEST_F(PlayerManagerReentryTest, ARequestCancelledByTheFailureOfAnotherIsNotTold) {
  RequestPtr neighbour;
  requestThat("a", [&] { neighbour->command->cancel(); });
  neighbour = request("a");
  const auto third = request("a");
  testing::internal::CaptureStdout();
  player(0)->finishLoad(someError());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << "every use is given back once";
  EXPECT_EQ(neighbour->completions, 0);
  EXPECT_EQ(third->completions, 1);
  EXPECT_EQ(list(), "nil 0");
}

TEST_F(PlayerManagerReentryTest, ARequestCancelledByAnotherThatLostItsPlayerIsNotTold) {
  manager->setMaxPlayersAtIdleState(1);
  RequestPtr neighbour;
  requestThat("a", [&] { neighbour->command->cancel(); });
  neighbour = request("a");
  const auto b = request("b");
  EXPECT_EQ(neighbour->completions, 0);
  player(0)->finishLoad();
  EXPECT_EQ(neighbour->completions, 0);
  EXPECT_EQ(b->completions, 1);
}

TEST_F(PlayerManagerReentryTest, ARequestMayCancelItselfInItsCompletion) {
  for (const auto& error : {NSErrorPtr(), someError()}) {
    ZFCancelCommandPtr command;
    std::shared_ptr<PlayerDecorator> handle;
    int completions = 0;
    const auto other = request("a");
    command = manager->loadPlayer(video("a"), ScriptedAVPlayerItem::create(true), {},
                                  [&](const PlayerLoadResult& result) {
                                    ++completions;
                                    handle = result.player();
                                    command->cancel();
                                    command->cancel();
                                  });
    player(0)->finishLoad(error);
    EXPECT_EQ(completions, 1);
    EXPECT_EQ(list(), error ? "nil 0" : "a 2");
    manager->removeAllPlayers();
    made.clear();
  }
}

TEST_F(PlayerManagerReentryTest, ACancelThatFindsThePoolGoneDoesNothing) {
  const auto a = request("a");
  manager.reset();
  a->command->cancel();
  a->command->cancel();
  EXPECT_EQ(a->completions, 0);
  EXPECT_THAT(*log, ElementsAre("0 load", "0 full teardown"));
}

TEST_F(PlayerManagerReentryTest, ACancelAfterThePlayerWasDroppedLeavesTheNextOneAlone) {
  const auto a = request("a");
  manager->removeAllPlayers();
  const auto again = request("a");
  a->command->cancel();
  EXPECT_EQ(list(), "a 1");
  player(1)->finishLoad();
  EXPECT_EQ(again->completions, 1);
  EXPECT_EQ(a->completions, 0);
}

// What a request holds.

class PlayerManagerHoldingTest : public PlayerManagerReentryTest {
 protected:
  /// A request whose completion holds `token`.
  ZFCancelCommandPtr requestHolding() {
    auto held = std::make_shared<int>(0);
    token = held;
    return requestThat("a", [held] {});
  }
  std::weak_ptr<int> token;
};

TEST_F(PlayerManagerHoldingTest, ACommandLetsGoOfTheCompletionWhenTheLoadHasSucceeded) {
  const auto command = requestHolding();
  EXPECT_FALSE(token.expired());
  player(0)->finishPendingLoad(nullptr);
  player(0)->loads.clear();
  EXPECT_TRUE(token.expired());
}

TEST_F(PlayerManagerHoldingTest, ACommandLetsGoOfTheCompletionWhenTheLoadHasFailed) {
  const auto command = requestHolding();
  player(0)->finishPendingLoad(someError());
  EXPECT_TRUE(token.expired());
}

TEST_F(PlayerManagerHoldingTest, ACommandLetsGoOfTheCompletionWhenItIsCancelled) {
  const auto other = request("a");
  const auto command = requestHolding();
  command->cancel();
  EXPECT_TRUE(token.expired());
}

TEST_F(PlayerManagerHoldingTest, ACommandLetsGoOfTheCompletionWhenThePlayerIsTaken) {
  manager->setMaxPlayersAtIdleState(1);
  const auto command = requestHolding();
  const auto b = request("b");
  EXPECT_TRUE(token.expired());
}

TEST_F(PlayerManagerHoldingTest, ACommandLetsGoOfTheCompletionWhenThePlayerIsDropped) {
  const auto command = requestHolding();
  manager->removeAllPlayers();
  EXPECT_TRUE(token.expired());
}

TEST_F(PlayerManagerHoldingTest, ACommandLetsGoOfTheCompletionWhenThePoolGoes) {
  const auto command = requestHolding();
  manager.reset();
  EXPECT_TRUE(token.expired());
}

// The last reference to the pool is dropped in what it calls.

class PlayerManagerLastReferenceTest : public PlayerManagerReentryTest {
 protected:
  /// To be called in what the pool calls.
  void dropPool() {
    if (!manager) return;
    pool_ = manager;
    manager.reset();
    livesOn_ = !pool_.expired();
  }
  std::function<void()> dropsPool() {
    return [this] { dropPool(); };
  }

  /// Whether the pool was dropped in the middle of something, lived on and is gone now.
  [[nodiscard]] bool hasLivedOn() const { return livesOn_ && pool_.expired(); }

 private:
  std::weak_ptr<PlayerManager> pool_;
  bool livesOn_ = false;
};

TEST_F(PlayerManagerLastReferenceTest, ThePoolLivesToTheEndOfARequestThatTakesAPlayer) {
  manager->setMaxPlayersAtIdleState(1);
  requestThat("a", dropsPool());
  const auto b = request("b");
  EXPECT_TRUE(hasLivedOn());
  EXPECT_EQ(b->completions, 0);
  b->command->cancel();
}

TEST_F(PlayerManagerLastReferenceTest, ThePoolLivesToTheEndOfARequestThatIsAnsweredAtOnce) {
  makeIdle({"a"});
  requestThat("a", dropsPool());
  EXPECT_TRUE(hasLivedOn());
}

TEST_F(PlayerManagerLastReferenceTest, ThePoolLivesToTheEndOfARequestWhoseLoadEndsAtOnce) {
  playersLoadAtOnce = true;
  requestThat("a", dropsPool());
  EXPECT_TRUE(hasLivedOn());
}

TEST_F(PlayerManagerLastReferenceTest, ThePoolLivesToTheEndOfARequestThatIsRefused) {
  manager->setMaxPlayersAtIdleState(0);
  requestThat("a", dropsPool());
  EXPECT_TRUE(hasLivedOn());
}

TEST_F(PlayerManagerLastReferenceTest, ThePoolLivesToTheEndOfACompletion) {
  requestThat("a", dropsPool());
  const auto neighbour = request("a");
  player(0)->finishLoad();
  EXPECT_TRUE(hasLivedOn());
  EXPECT_EQ(neighbour->completions, 0) << "the pool has gone by then";
}

TEST_F(PlayerManagerLastReferenceTest, ThePoolLivesToTheEndOfACompletionThatFails) {
  requestThat("a", dropsPool());
  const auto neighbour = request("a");
  player(0)->finishLoad(someError());
  EXPECT_TRUE(hasLivedOn());
  EXPECT_EQ(neighbour->completions, 0) << "the pool has gone by then";
}

TEST_F(PlayerManagerLastReferenceTest, ThePoolLivesToTheEndOfTheMakingOfAPlayer) {
  onMake = dropsPool();
  const auto a = request("a");
  EXPECT_TRUE(hasLivedOn());
}

TEST_F(PlayerManagerLastReferenceTest, ThePoolLivesWhileItAsksVideosForTheirIds) {
  const auto id = video("a");
  const auto drop = [&](const auto& operation) {
    manager = OpenPlayerManager::create([this](PlayerManager::PlayerKind) {
      return std::make_shared<ScriptedMutablePlayer>("p", log);
    });
    const auto pooled = request(id);
    auto* const pool = manager.get();
    id->onIdAsked = dropsPool();
    operation(*pool);
    id->onIdAsked = nullptr;
    EXPECT_TRUE(hasLivedOn());
  };
  drop([&](OpenPlayerManager& pool) { (void)pool.playerState(video("b")); });
  drop([&](OpenPlayerManager& pool) { (void)pool.player(video("b"), {}); });
  drop([&](OpenPlayerManager& pool) { (void)pool.debugDescription(); });
  drop([&](OpenPlayerManager& pool) {
    pool.loadPlayer(video("b"), ScriptedAVPlayerItem::create(true), {}, {});
  });
}

TEST_F(PlayerManagerLastReferenceTest, ThePoolLivesWhileItAsksAVideoForItsDuration) {
  const auto a = video("a");
  const auto loadedA = loaded(a);
  a->onDurationAsked = dropsPool();
  const auto result = manager->player(a, {});
  EXPECT_TRUE(hasLivedOn());
  EXPECT_EQ(result.player()->innerPlayer(), nullptr);
}

TEST_F(PlayerManagerLastReferenceTest, ThePoolLivesToTheEndOfARelease) {
  const auto a = video("a");
  const auto request = loaded(a);
  a->onReuseAsked = dropsPool();
  request->release();
  EXPECT_TRUE(hasLivedOn());
}

TEST_F(PlayerManagerLastReferenceTest, ThePoolLivesToTheEndOfAReleaseThatTearsDown) {
  const auto request = loaded(video("a", false));
  player(0)->onTeardown = dropsPool();
  request->release();
  EXPECT_TRUE(hasLivedOn());
}

TEST_F(PlayerManagerLastReferenceTest, ThePoolLivesToTheEndOfARewind) {
  const auto request = loaded("a");
  player(0)->onSeek = dropsPool();
  request->release();
  EXPECT_TRUE(hasLivedOn());
}

TEST_F(PlayerManagerLastReferenceTest, ThePoolLivesToTheEndOfATrim) {
  makeIdle({"a", "b"});
  player(0)->onFullTeardown = dropsPool();
  auto* const pool = manager.get();
  pool->setMaxPlayersAtIdleState(0);
  EXPECT_TRUE(hasLivedOn());
  EXPECT_THAT(*log, ElementsAre("0 full teardown", "1 full teardown"));
}

TEST_F(PlayerManagerLastReferenceTest, ThePoolLivesToTheEndOfAMediaServicesReset) {
  makeIdle({"a", "b"});
  player(0)->onFullTeardown = dropsPool();
  NSNotificationCenter::defaultCenter().postNotification(
      AVAudioSessionMediaServicesWereResetNotification);
  EXPECT_TRUE(hasLivedOn());
}

TEST_F(PlayerManagerLastReferenceTest, ThePoolLivesToTheEndOfMakingRoom) {
  manager->setMaxPlayersAtIdleState(1);
  makeIdle({"a"});
  player(0)->onFullTeardown = dropsPool();
  auto* const pool = manager.get();
  EXPECT_TRUE(pool->makeRoom(*ScriptedAVPlayerItem::create(false)));
  EXPECT_TRUE(hasLivedOn());
}

// The list changes in what the pool calls.

TEST_F(PlayerManagerReentryTest, AVideoThatEmptiesThePoolWhenAskedForItsIdFindsNoPlayer) {
  const auto a = video("a");
  const auto b = request("b");
  const auto pooled = request(a);
  a->onIdAsked = [&] { manager->removeAllPlayers(); };
  EXPECT_TRUE(manager->player(video("a"), {}).failure());
  EXPECT_EQ(list(), "");
}

TEST_F(PlayerManagerReentryTest, AHandleReleasedAgainWhileItIsReleasedGivesItsUseBackOnce) {
  const auto a = video("a");
  const auto first = loaded(a);
  const auto second = loaded(a);
  const auto handle = first->handle();
  first->release();
  second->release();
  testing::internal::CaptureStdout();
  a->onReuseAsked = [&] { handle->releaseToManager(); };
  handle->releaseToManager();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(list(), "a 0");
}

}  // namespace
}  // namespace zaffo
