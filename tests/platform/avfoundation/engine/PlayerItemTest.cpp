// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/PlayerItem.h"

#include <gtest/gtest.h>

#include "doubles/ManualTime.h"
#include "doubles/ScriptedAVPlayer.h"
#include "doubles/ScriptedAsset.h"
#include "platform/foundation/MakeError.h"

namespace zaffo {
namespace {

class PlayerItemTest : public testing::Test {
 protected:
  void prepare() {
    item_->prepare([this] { ++settled_; });
  }

  ManualTime time_;
  std::shared_ptr<ScriptedAsset> asset_ = std::make_shared<ScriptedAsset>();
  std::shared_ptr<PlayerItem> item_ = std::make_shared<PlayerItem>(asset_);
  int settled_ = 0;
};

TEST_F(PlayerItemTest, IsSettledInsideTheCallWhenTheKeysHaveEnded) {
  asset_->statuses = {{"tracks", AVKeyValueStatus::Failed},
                      {"duration", AVKeyValueStatus::Cancelled}};
  prepare();
  EXPECT_EQ(item_->status(), AVPlayerItemStatus::Failed);
  ASSERT_TRUE(item_->error());
  EXPECT_EQ(item_->error()->localizedDescription(), "The video could not be loaded.");
  EXPECT_TRUE(asset_->requestedKeys.empty());
  EXPECT_EQ(settled_, 0);
}

TEST_F(PlayerItemTest, LoadsTheKeysAndTellsOnTheMainQueueWhenItIsSettled) {
  asset_->statuses["duration"] = AVKeyValueStatus::Loading;
  prepare();
  EXPECT_EQ(item_->status(), AVPlayerItemStatus::Unknown);
  asset_->statuses["duration"] = AVKeyValueStatus::Failed;
  asset_->finishLoading();
  EXPECT_EQ(settled_, 0);
  time_.settle();
  EXPECT_EQ(settled_, 1);
  EXPECT_EQ(item_->status(), AVPlayerItemStatus::Failed);
}

TEST_F(PlayerItemTest, AnAssetWithoutASourceCannotBeDecoded) {
  prepare();
  ASSERT_TRUE(item_->error());
  EXPECT_EQ(item_->error()->code(), AVErrorDecoderNotFound);
}

TEST_F(PlayerItemTest, IsPreparedOnce) {
  prepare();
  const NSErrorPtr error = item_->error();
  asset_->statuses["tracks"] = AVKeyValueStatus::Failed;
  prepare();
  EXPECT_EQ(item_->error(), error);
}

TEST_F(PlayerItemTest, AFailureOnTheWayIsNotUndoneByTheKeysThatCome) {
  asset_->statuses["tracks"] = AVKeyValueStatus::Loading;
  prepare();
  const NSErrorPtr error = makeError(AVErrorUnknown, "scripted");
  item_->fail(error);
  asset_->finishLoading();
  time_.settle();
  EXPECT_EQ(item_->error(), error);
}

TEST_F(PlayerItemTest, TellsNobodyWhenItGoesBeforeTheKeysCome) {
  asset_->statuses["tracks"] = AVKeyValueStatus::Loading;
  prepare();
  item_ = nullptr;
  asset_->finishLoading();
  time_.settle();
  EXPECT_EQ(settled_, 0);
}

TEST_F(PlayerItemTest, BelongsToOnePlayerUntilThatGivesItUp) {
  ScriptedAVPlayer player, other;
  EXPECT_TRUE(item_->claim(player));
  EXPECT_TRUE(item_->claim(player));
  EXPECT_FALSE(item_->claim(other));
  item_->giveUp(other);
  EXPECT_FALSE(item_->claim(other));
  item_->giveUp(player);
  EXPECT_TRUE(item_->claim(other));
}

TEST_F(PlayerItemTest, TheDurationIsIndefiniteUntilTheAssetKnowsIt) {
  asset_->durationValue = kCMTimeInvalid;
  EXPECT_TRUE(CMTIME_IS_INDEFINITE(item_->duration()));
  asset_->durationValue = CMTimeMake(5, 1);
  EXPECT_EQ(item_->duration(), CMTimeMake(5, 1));
}

}  // namespace
}  // namespace zaffo
