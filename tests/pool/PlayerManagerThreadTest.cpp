// SPDX-License-Identifier: Apache-2.0
#include <thread>

#include "pool/PoolTest.h"

#ifndef NDEBUG  // the thread is looked at in debug builds only

namespace zaffo {
namespace {

/// What the pool offers belongs on the main thread, each operation for itself.
class PlayerManagerThreadDeathTest : public PoolTest {
 protected:
  PlayerManagerThreadDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  static void expectDeathElsewhere(const std::function<void()>& operation) {
    EXPECT_DEATH(std::thread(operation).join(), "belongs on the main thread");
  }
};

TEST_F(PlayerManagerThreadDeathTest, BoundsAreWrittenOnTheMainThread) {
  expectDeathElsewhere([this] { manager->setMaxAllowedConcurrentPlayers(3); });
  expectDeathElsewhere([this] { manager->setMaxPlayersAtIdleState(3); });
}

TEST_F(PlayerManagerThreadDeathTest, TheIdleStateAndThePlayersKindAreWrittenOnTheMainThread) {
  expectDeathElsewhere([this] { manager->setMainThreadIsIdle(true); });
  expectDeathElsewhere([this] { manager->setUseFastPlayer(true); });
}

TEST_F(PlayerManagerThreadDeathTest, VideosAreAskedForOnTheMainThread) {
  expectDeathElsewhere([this] { (void)manager->playerState(video("a")); });
  expectDeathElsewhere([this] { (void)manager->player(video("a"), {}); });
  expectDeathElsewhere([this] { (void)request("a"); });
}

TEST_F(PlayerManagerThreadDeathTest, RoomIsMadeOnTheMainThread) {
  const auto item = ScriptedAVPlayerItem::create(true);
  expectDeathElsewhere([&] { (void)manager->makeRoom(*item); });
}

}  // namespace
}  // namespace zaffo

#endif
