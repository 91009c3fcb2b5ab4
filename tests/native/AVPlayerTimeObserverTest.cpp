// SPDX-License-Identifier: Apache-2.0
#include "native/AVPlayerTimeObserver.h"

#include <gtest/gtest.h>

#include <type_traits>

#include "doubles/ScriptedAVPlayer.h"

namespace zaffo {
namespace {

class AVPlayerTimeObserverTest : public testing::Test {
 protected:
  std::shared_ptr<ScriptedAVPlayer> player = std::make_shared<ScriptedAVPlayer>();
  std::shared_ptr<void> token = player->addBoundaryTimeObserverForTimes({}, nullptr, [] {});
  std::shared_ptr<void> otherToken = player->addBoundaryTimeObserverForTimes({}, nullptr, [] {});
};

TEST_F(AVPlayerTimeObserverTest, RemovesItsRegistrationOnce) {
  AVPlayerTimeObserver observer(token, player);
  observer.cancel();
  EXPECT_EQ(player->removals, 1);
  ASSERT_EQ(player->observations.size(), 1u);
  EXPECT_EQ(player->observations.front(), otherToken);
  observer.cancel();
  EXPECT_EQ(player->removals, 1);
}

TEST_F(AVPlayerTimeObserverTest, LetsGoOfTheTokenOnCancel) {
  AVPlayerTimeObserver observer(token, player);
  const auto before = token.use_count();
  observer.cancel();
  EXPECT_LT(token.use_count(), before);
}

TEST_F(AVPlayerTimeObserverTest, DoesNothingWithoutAToken) {
  AVPlayerTimeObserver observer(nullptr, player);
  observer.cancel();
  EXPECT_EQ(player->removals, 0);
}

TEST_F(AVPlayerTimeObserverTest, DoesNothingWhenThePlayerHasGone) {
  AVPlayerTimeObserver observer(std::make_shared<int>(1), player);
  EXPECT_EQ(player.use_count(), 1) << "the player is held weakly";
  player.reset();
  observer.cancel();
  observer.cancel();
}

TEST_F(AVPlayerTimeObserverTest, KeepsTheTokenWhenThePlayerHasGone) {
  const auto kept = std::make_shared<int>(1);
  AVPlayerTimeObserver observer(kept, player);
  player.reset();
  observer.cancel();
  EXPECT_EQ(kept.use_count(), 2);
}

TEST_F(AVPlayerTimeObserverTest, LeavesTheRegistrationWhenItIsDestroyed) {
  { const AVPlayerTimeObserver observer(token, player); }
  EXPECT_EQ(player->removals, 0);
  EXPECT_EQ(player->observations.size(), 2u);
}

TEST_F(AVPlayerTimeObserverTest, IsMadeOnlyOfATokenAndAPlayer) {
  EXPECT_FALSE(std::is_default_constructible_v<AVPlayerTimeObserver>);
}

}  // namespace
}  // namespace zaffo
