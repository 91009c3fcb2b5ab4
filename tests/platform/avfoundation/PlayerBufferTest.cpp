// SPDX-License-Identifier: Apache-2.0

// What an item tells of its buffer.

#include <gtest/gtest.h>

#include "doubles/ScriptedAVPlayerItem.h"
#include "platform/avfoundation/AVComposition.h"
#include "platform/avfoundation/PlayerFixture.h"

namespace zaffo {
namespace {

using PlayerBufferTest = PlayerFixture;

TEST_F(PlayerBufferTest, ALocalClipIsLoadedAsAWholeOnceItsAssetIs) {
  const auto asset = AVAsset::assetWithURL(NSURL::fileURLWithPath(test::clip("h264_30.mp4")));
  const auto item = AVPlayerItem::playerItemWithAsset(asset);
  EXPECT_TRUE(item->loadedTimeRanges().empty());
  EXPECT_FALSE(item->isPlaybackBufferFull());
  asset->loadValuesAsynchronouslyForKeys({"tracks", "duration"}, [] {});
  time_.settle();
  ASSERT_EQ(item->loadedTimeRanges().size(), 1U);
  EXPECT_EQ(item->loadedTimeRanges()[0], CMTimeRangeMake(kCMTimeZero, CMTimeMake(4, 1)));
  EXPECT_TRUE(item->isPlaybackBufferFull());
}

TEST_F(PlayerBufferTest, IsEmptyUntilAPlayerHasTheFirstPicture) {
  const auto item = loadedItem("h264_30.mp4");
  EXPECT_TRUE(item->isPlaybackBufferEmpty());
  EXPECT_FALSE(item->isPlaybackLikelyToKeepUp());
  player_->replaceCurrentItemWithPlayerItem(item);
  time_.settle();
  EXPECT_FALSE(item->isPlaybackBufferEmpty());
  EXPECT_TRUE(item->isPlaybackLikelyToKeepUp());
  player_->replaceCurrentItemWithPlayerItem(nullptr);
  EXPECT_TRUE(item->isPlaybackBufferEmpty());
}

TEST_F(PlayerBufferTest, ALocalClipKeepsUpToItsEnd) {
  const auto item = open("h264_30.mp4");
  player_->setRate(1);
  for (int i = 0; i < 50; ++i) {
    time_.advance(kNanosecondsPerSecond / 10);
    ASSERT_FALSE(item->isPlaybackBufferEmpty()) << i;
    ASSERT_TRUE(item->isPlaybackLikelyToKeepUp()) << i;
  }
  EXPECT_EQ(player_->rate(), 0);
}

TEST_F(PlayerBufferTest, ACompositionOfLocalClipsIsLoadedAsAWhole) {
  const auto composition = AVMutableComposition::create();
  const auto clip = loadedAsset(test::clip("h264_30.mp4"));
  const auto track = composition->addMutableTrackWithMediaType(AVMediaTypeVideo, 1);
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(track->insertTimeRange(CMTimeRangeMake(kCMTimeZero, CMTimeMake(2, 1)),
                                       clip->tracksWithMediaType(AVMediaTypeVideo).front(),
                                       CMTimeMake(2 * i, 1), nullptr));
  }
  const auto item = AVPlayerItem::playerItemWithAsset(composition);
  player_->replaceCurrentItemWithPlayerItem(item);
  time_.settle();
  ASSERT_EQ(item->loadedTimeRanges().size(), 1U);
  EXPECT_EQ(item->loadedTimeRanges()[0], CMTimeRangeMake(kCMTimeZero, CMTimeMake(4, 1)));
  EXPECT_TRUE(item->isPlaybackLikelyToKeepUp());
}

TEST_F(PlayerBufferTest, AnItemWithoutABufferIsAlwaysReady) {
  const ScriptedAVPlayerItem item;
  EXPECT_FALSE(item.isPlaybackBufferEmpty());
  EXPECT_TRUE(item.isPlaybackLikelyToKeepUp());
  EXPECT_TRUE(item.isPlaybackBufferFull());
}

}  // namespace
}  // namespace zaffo
