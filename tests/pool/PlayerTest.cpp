// SPDX-License-Identifier: Apache-2.0
#include "pool/Player.h"

#include <gtest/gtest.h>

#include <unordered_set>

#include "doubles/ScriptedMutablePlayer.h"
#include "pool/PlayerDecorator.h"

namespace zaffo {
namespace {

TEST(PlayerSupportedItemType, IsMadeOfTheRawValues0And1Only) {
  EXPECT_EQ(PlayerSupportedItemTypeFromRawValue(0), PlayerSupportedItemType::Streaming);
  EXPECT_EQ(PlayerSupportedItemTypeFromRawValue(1), PlayerSupportedItemType::Local);
  for (const std::int64_t value : {-1L, 2L, 1L << 32, (1L << 32) + 1}) {
    EXPECT_EQ(PlayerSupportedItemTypeFromRawValue(value), std::nullopt) << value;
  }
}

TEST(PlayerSupportedItemType, HasItsRawValues) {
  EXPECT_EQ(static_cast<int>(PlayerSupportedItemType::Streaming), 0);
  EXPECT_EQ(static_cast<int>(PlayerSupportedItemType::Local), 1);
}

TEST(PlayerEnumerations, AreOrderedAsDeclaredAndHashable) {
  EXPECT_LT(PlayerState::NotLoaded, PlayerState::Loading);
  EXPECT_LT(PlayerState::Loading, PlayerState::Loaded);
  const std::unordered_set<PlayerState> states{PlayerState::Loaded, PlayerState::Loaded};
  EXPECT_EQ(states.size(), 1u);
  const std::unordered_set<PlayerSupportedItemType> types{PlayerSupportedItemType::Local,
                                                          PlayerSupportedItemType::Streaming};
  EXPECT_EQ(types.size(), 2u);
}

TEST(PlayerLoadResult, HasTheHandleAndDurationOfASuccess) {
  const auto inner =
      std::make_shared<ScriptedMutablePlayer>("0", std::make_shared<std::vector<std::string>>());
  const auto handle = std::make_shared<PlayerDecorator>(nullptr, inner);
  const PlayerLoadResult result = PlayerLoadResult::Success{handle, CMTimeMake(7, 2)};
  EXPECT_EQ(result.player(), handle);
  EXPECT_EQ(result.error(), nullptr);
  ASSERT_TRUE(result.success());
  EXPECT_EQ(result.success()->itemDuration, CMTimeMake(7, 2));
  EXPECT_FALSE(result.failure());
}

TEST(PlayerLoadResult, HasNoHandleForAFailure) {
  const auto error = NSError::create("domain", 7);
  const PlayerLoadResult result = PlayerLoadResult::Failure{error};
  EXPECT_EQ(result.player(), nullptr);
  EXPECT_EQ(result.error(), error);
  EXPECT_FALSE(result.success());
  ASSERT_TRUE(result.failure());
  EXPECT_EQ(result.failure()->error, error);
}

TEST(PlayerContract, ASingleTimeInBracesIsABoundaryAndNoInterval) {
  const auto scripted =
      std::make_shared<ScriptedMutablePlayer>("0", std::make_shared<std::vector<std::string>>());
  const auto handle = std::make_shared<PlayerDecorator>(nullptr, scripted);
  const auto observe = [](auto& player) {
    (void)player.addTimeObserver({CMTimeMake(1, 1)}, [](CMTime) {});
  };
  observe(*scripted);
  observe(static_cast<Player&>(*scripted));
  observe(static_cast<MutablePlayer&>(*scripted));
  observe(*handle);
  EXPECT_TRUE(scripted->intervals.empty());
  EXPECT_EQ(scripted->boundaries,
            std::vector<std::vector<CMTime>>(4, std::vector<CMTime>{CMTimeMake(1, 1)}));
}

TEST(PlayerError, HasDomainCodeAndMessage) {
  const auto error = makePlayerError("what went wrong");
  EXPECT_EQ(error->domain(), "com.zaffoapp.co");
  EXPECT_EQ(error->code(), 500);
  EXPECT_EQ(error->userInfo(), (NSError::UserInfo{{NSLocalizedDescriptionKey, "what went wrong"}}));
}

}  // namespace
}  // namespace zaffo
