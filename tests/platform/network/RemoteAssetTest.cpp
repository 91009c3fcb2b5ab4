// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "doubles/FaultServer.h"
#include "doubles/MainLoopUntil.h"
#include "media/Clips.h"
#include "media/FrameNumber.h"
#include "platform/TimeSource.h"
#include "platform/avfoundation/AVAssetImageGenerator.h"
#include "platform/avfoundation/AVPlayer.h"
#include "platform/avfoundation/NetworkPreloader.h"
#include "platform/media/playback/VideoOutput.h"
#include "platform/network/SharedResources.h"

namespace zaffo {
namespace {

constexpr int64_t kTwentySeconds = 20'000'000'000;

FaultReply replyWith(const std::string& name) {
  std::ifstream file(test::clip(name), std::ios::binary);
  FaultReply reply;
  reply.body.assign(std::istreambuf_iterator<char>(file), {});
  reply.entityTag = "\"" + name + "\"";
  return reply;
}

/// Clips that a server on loopback has, in real time.
class RemoteAssetTest : public testing::Test {
 protected:
  // A server of another test may have had the same port.
  RemoteAssetTest() { network::SharedResources::shared().forgetKept(); }

  std::shared_ptr<AVAsset> assetAt(const std::string& path) {
    return AVAsset::assetWithURL(NSURL::URLWithString(server_.address(path)));
  }

  /// A clip of four seconds that comes in so many pieces, with a pause before each but the first.
  std::shared_ptr<AVAsset> assetInPieces(std::size_t pieces, std::chrono::milliseconds pause) {
    auto reply = replyWith("h264_30.mp4");
    reply.pieceSize = reply.body.size() / pieces;
    reply.pieceDelay = pause;
    server_.on("/slow.mp4", {reply});
    return assetAt("/slow.mp4");
  }

  /// Waits until the bytes have no reader left, and are kept.
  bool isKept(const std::string& path) {
    const auto url = NSURL::URLWithString(server_.address(path));
    return runMainLoopUntil([&] { return network::SharedResources::shared().keeps(url); },
                            kTwentySeconds);
  }

  /// Loads the tracks; the error of that, or null.
  static NSErrorPtr load(AVAsset& asset) {
    std::atomic<bool> isLoaded{false};
    asset.loadValuesAsynchronouslyForKeys({"tracks", "duration"}, [&] { isLoaded = true; });
    EXPECT_TRUE(runMainLoopUntil([&] { return isLoaded.load(); }, kTwentySeconds));
    NSErrorPtr error;
    (void)asset.statusOfValueForKey("tracks", &error);
    return error;
  }

  std::shared_ptr<AVPlayer> playerOf(const std::shared_ptr<AVAsset>& asset) {
    const auto player = AVPlayer::create();
    player->replaceCurrentItemWithPlayerItem(AVPlayerItem::playerItemWithAsset(asset));
    return player;
  }

  /// Plays until the frame of this number was on show; all that were.
  static std::set<int> playTo(AVPlayer& player, int last, float rate = 1) {
    std::set<int> numbers;
    player.setRate(rate);
    EXPECT_TRUE(runMainLoopUntil(
        [&] {
          const auto picture = player.videoOutput()->pictureAtHostTime(TimeSource::now());
          if (const auto number = test::frameNumber(picture.buffer)) numbers.insert(*number);
          return !numbers.empty() && *numbers.rbegin() >= last;
        },
        kTwentySeconds));
    player.setRate(0);
    return numbers;
  }

  FaultServer server_;
};

TEST_F(RemoteAssetTest, PlaysFromOneRequestWithItsIndexInFront) {
  server_.on("/clip.mp4", {replyWith("h264_30.mp4")});
  const auto asset = assetAt("/clip.mp4");
  ASSERT_FALSE(load(*asset));
  EXPECT_FALSE(asset->isReadable()) << "it streams";
  EXPECT_EQ(asset->tracks().size(), 2U);
  EXPECT_EQ(asset->duration(), CMTimeMake(4, 1));
  const auto player = playerOf(asset);
  const auto shown = playTo(*player, 60, 2);
  EXPECT_GT(shown.size(), 40U);
  EXPECT_EQ(server_.requests().size(), 1U);
}

TEST_F(RemoteAssetTest, PlaysWithItsIndexAtTheEndFromServersWithAndWithoutRanges) {
  for (const bool servesRanges : {true, false}) {
    auto reply = replyWith("h264_30_moov_last.mp4");
    reply.servesRanges = servesRanges;
    const std::string path = servesRanges ? "/ranges.mp4" : "/whole.mp4";
    server_.on(path, {reply});
    const auto asset = assetAt(path);
    ASSERT_FALSE(load(*asset));
    EXPECT_GT(playTo(*playerOf(asset), 30, 2).size(), 10U) << servesRanges;
  }
}

TEST_F(RemoteAssetTest, WaitsForWhatIsLateAndGoesOn) {
  const auto asset = assetInPieces(12, std::chrono::milliseconds(150));
  ASSERT_FALSE(load(*asset));
  const auto player = playerOf(asset);
  const auto shown = playTo(*player, 110, 4);
  EXPECT_EQ(player->currentItem()->status(), AVPlayerItemStatus::ReadyToPlay);
  EXPECT_GT(shown.size(), 20U);
}

TEST_F(RemoteAssetTest, TellsWhatIsAtHandAndWhenItRunsDry) {
  const auto asset = assetInPieces(2, std::chrono::milliseconds(2500));
  const auto item = AVPlayerItem::playerItemWithAsset(asset);
  EXPECT_TRUE(item->loadedTimeRanges().empty());
  EXPECT_TRUE(item->isPlaybackBufferEmpty());
  ASSERT_FALSE(load(*asset));
  const auto player = AVPlayer::create();
  player->replaceCurrentItemWithPlayerItem(item);
  ASSERT_TRUE(runMainLoopUntil([&] { return !item->isPlaybackBufferEmpty(); }, kTwentySeconds));
  auto ranges = item->loadedTimeRanges();
  ASSERT_EQ(ranges.size(), 1U);
  EXPECT_EQ(ranges[0].start, kCMTimeZero);
  EXPECT_GT(CMTimeGetSeconds(ranges[0].duration), 0.5);
  EXPECT_LT(CMTimeGetSeconds(ranges[0].duration), 2.5);
  EXPECT_FALSE(item->isPlaybackBufferFull());

  player->setRate(2);
  ASSERT_TRUE(runMainLoopUntil([&] { return item->isPlaybackBufferEmpty(); }, kTwentySeconds));
  const CMTime place = player->currentTime();
  EXPECT_GT(CMTimeGetSeconds(place), 1);
  EXPECT_LT(CMTimeGetSeconds(place), 3);
  EXPECT_FALSE(item->isPlaybackLikelyToKeepUp());
  EXPECT_EQ(player->rate(), 2);
  EXPECT_EQ(server_.requests().size(), 1U);

  ASSERT_TRUE(runMainLoopUntil([&] { return item->isPlaybackLikelyToKeepUp(); }, kTwentySeconds));
  EXPECT_FALSE(item->isPlaybackBufferEmpty());
  EXPECT_TRUE(item->isPlaybackBufferFull());
  ranges = item->loadedTimeRanges();
  ASSERT_EQ(ranges.size(), 1U);
  EXPECT_EQ(ranges[0], CMTimeRangeMake(kCMTimeZero, item->duration()));
  EXPECT_TRUE(runMainLoopUntil([&] { return player->currentTime() > place; }, kTwentySeconds));
}

TEST_F(RemoteAssetTest, TellsWhileItIsPausedThatMoreHasCome) {
  const auto asset = assetInPieces(2, std::chrono::milliseconds(2500));
  ASSERT_FALSE(load(*asset));
  const auto player = playerOf(asset);
  const auto item = player->currentItem();
  player->setRate(4);
  ASSERT_TRUE(runMainLoopUntil(
      [&] { return item->isPlaybackBufferEmpty() && player->currentTime() > CMTimeMake(1, 1); },
      kTwentySeconds));
  player->setRate(0);
  ASSERT_TRUE(runMainLoopUntil([&] { return item->isPlaybackLikelyToKeepUp(); }, kTwentySeconds));
  EXPECT_FALSE(item->isPlaybackBufferEmpty());
}

TEST_F(RemoteAssetTest, WhoReadsTheSameAddressAtATimeSharesWhatCame) {
  server_.on("/clip.mp4", {replyWith("h264_30.mp4")});
  const auto one = assetAt("/clip.mp4"), other = assetAt("/clip.mp4");
  ASSERT_FALSE(load(*one));
  ASSERT_FALSE(load(*other));
  NSErrorPtr error;
  const auto image = AVAssetImageGenerator::assetImageGeneratorWithAsset(other)->copyCGImageAtTime(
      CMTimeMake(1, 1), nullptr, &error);
  EXPECT_TRUE(image);
  EXPECT_GT(playTo(*playerOf(one), 20, 2).size(), 5U);
  EXPECT_EQ(server_.requests().size(), 1U);
}

TEST_F(RemoteAssetTest, AClipThatIsTurnedBackToIsNotFetchedAgain) {
  server_.on("/clip.mp4", {replyWith("h264_30.mp4")});
  auto asset = assetAt("/clip.mp4");
  ASSERT_FALSE(load(*asset));
  auto player = playerOf(asset);
  EXPECT_FALSE(playTo(*player, 60, 2).empty());
  player.reset();
  asset.reset();
  ASSERT_TRUE(isKept("/clip.mp4"));
  asset = assetAt("/clip.mp4");
  ASSERT_FALSE(load(*asset));
  EXPECT_EQ(asset->tracks().size(), 2U);
  EXPECT_FALSE(playTo(*playerOf(asset), 60, 2).empty());
  EXPECT_EQ(server_.requests().size(), 1U);
}

TEST_F(RemoteAssetTest, APreloadedClipShowsItsFirstPictureWithoutARequest) {
  auto reply = replyWith("h264_30.mp4");
  // Behind its samples as much again as those of a long clip.
  const auto samples = reply.body.find("mdat");
  reply.body.resize(samples - 4 + (2 << 20));
  reply.body.replace(samples - 4, 4, std::string("\0\x20\0\0", 4));
  // So slow that the preload ends with what it needs.
  reply.pieceSize = 10'000;
  reply.pieceDelay = std::chrono::milliseconds(20);
  server_.on("/clip.mp4", {reply});
  std::optional<NSErrorPtr> done;
  const auto url = NSURL::URLWithString(server_.address("/clip.mp4"));
  NetworkPreloader::shared().preload(url, 3, 0, [&](const NSErrorPtr& error) { done = error; });
  ASSERT_TRUE(runMainLoopUntil([&] { return done.has_value(); }, kTwentySeconds));
  EXPECT_FALSE(*done) << (*done)->localizedDescription();
  ASSERT_TRUE(isKept("/clip.mp4"));
  const auto requests = server_.requests().size();
  EXPECT_LT(server_.bytesSent(), 200'000);

  const auto asset = assetAt("/clip.mp4");
  ASSERT_FALSE(load(*asset));
  const auto player = playerOf(asset);
  EXPECT_TRUE(runMainLoopUntil(
      [&] {
        const auto picture = player->videoOutput()->pictureAtHostTime(TimeSource::now());
        return test::frameNumber(picture.buffer) == 0;
      },
      kTwentySeconds));
  EXPECT_EQ(server_.requests().size(), requests);
}

TEST_F(RemoteAssetTest, ACancelledPreloadStopsItsTrafficAtOnceAndTellsNobody) {
  auto reply = replyWith("h264_30.mp4");
  reply.stallsAfter = 1000;
  server_.on("/stalled.mp4", {reply});
  server_.on("/clip.mp4", {replyWith("h264_30.mp4")});
  const auto url = NSURL::URLWithString(server_.address("/stalled.mp4"));
  bool isTold = false, isOtherTold = false;
  auto& preloader = NetworkPreloader::shared();
  preloader.preload(url, 1, 0, [&](const NSErrorPtr&) { isTold = true; });
  ASSERT_TRUE(server_.waitForRequests(1));
  preloader.cancel(url);
  EXPECT_TRUE(server_.waitForLeaver());
  const auto other = NSURL::URLWithString(server_.address("/clip.mp4"));
  preloader.preload(other, 1, 0, [&](const NSErrorPtr&) { isOtherTold = true; });
  EXPECT_TRUE(runMainLoopUntil([&] { return isOtherTold; }, kTwentySeconds));
  EXPECT_FALSE(isTold);
}

TEST_F(RemoteAssetTest, PreloadsComeByPriorityTwoAtATime) {
  auto stalled = replyWith("h264_30.mp4");
  stalled.stallsAfter = 1000;
  const auto urlOf = [&](const std::string& path) {
    return NSURL::URLWithString(server_.address(path));
  };
  for (const char* path : {"/a", "/b", "/c"}) server_.on(path, {stalled});
  auto& preloader = NetworkPreloader::shared();
  preloader.preload(urlOf("/a"), 1, 1);
  preloader.preload(urlOf("/b"), 1, 0);
  ASSERT_TRUE(server_.waitForRequests(2));
  preloader.preload(urlOf("/c"), 1, 2);
  EXPECT_TRUE(server_.waitForLeaver()) << "/b gives way";
  EXPECT_TRUE(server_.waitForRequests(3));
  preloader.cancel(urlOf("/a"));
  EXPECT_TRUE(server_.waitForRequests(4)) << "/b comes again";
  EXPECT_EQ(server_.requests().back().path, "/b");
  for (const char* path : {"/b", "/c"}) preloader.cancel(urlOf(path));
}

TEST_F(RemoteAssetTest, APreloadPausesBesideAPageThatWaits) {
  auto late = replyWith("h264_30.mp4");
  late.headDelay = std::chrono::milliseconds(400);
  late.pieceSize = 10'000;
  server_.on("/page.mp4", {late});
  server_.on("/clip.mp4", {replyWith("h264_30.mp4")});
  const auto asset = assetAt("/page.mp4");
  asset->loadValuesAsynchronouslyForKeys({"tracks"}, [] {});
  ASSERT_TRUE(server_.waitForRequests(1));
  std::optional<NSErrorPtr> done;
  NetworkPreloader::shared().preload(NSURL::URLWithString(server_.address("/clip.mp4")), 1, 0,
                                     [&](const NSErrorPtr& error) { done = error; });
  ASSERT_TRUE(server_.waitForRequests(2));
  EXPECT_GT(server_.bytesSent(), 0) << "of the page, which comes first";
  ASSERT_TRUE(runMainLoopUntil([&] { return done.has_value(); }, kTwentySeconds));
  EXPECT_FALSE(*done);
}

TEST_F(RemoteAssetTest, APreloadSaysWhyItFailed) {
  std::optional<NSErrorPtr> done;
  NetworkPreloader::shared().preload(NSURL::URLWithString(server_.address("/none.mp4")), 1, 0,
                                     [&](const NSErrorPtr& error) { done = error; });
  ASSERT_TRUE(runMainLoopUntil([&] { return done.has_value(); }, kTwentySeconds));
  ASSERT_TRUE(*done);
  EXPECT_EQ((*done)->localizedDescription(), "\"none.mp4\" does not exist (404).");
}

TEST_F(RemoteAssetTest, SaysWhatTheServerSaid) {
  FaultReply missing;
  missing.status = 404;
  server_.on("/missing.mp4", {missing});
  const auto error = load(*assetAt("/missing.mp4"));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->localizedDescription(), "\"missing.mp4\" does not exist (404).");
}

TEST_F(RemoteAssetTest, ACancelledLoadStopsItsTrafficAtOnce) {
  auto reply = replyWith("h264_30_moov_last.mp4");
  reply.stallsAfter = 1000;
  server_.on("/stalled.mp4", {reply});
  auto asset = assetAt("/stalled.mp4");
  std::atomic<bool> isTold{false};
  asset->loadValuesAsynchronouslyForKeys({"tracks"}, [&] { isTold = true; });
  ASSERT_TRUE(server_.waitForRequests(1));
  asset->cancelLoading();
  EXPECT_TRUE(runMainLoopUntil([&] { return isTold.load(); }, kTwentySeconds));
  EXPECT_EQ(asset->statusOfValueForKey("tracks"), AVKeyValueStatus::Cancelled);
  EXPECT_TRUE(server_.waitForLeaver());
}

TEST_F(RemoteAssetTest, WhatIsNoClipIsRefused) {
  FaultReply page;
  page.body = "<html><body>Please log in.</body></html>";
  server_.on("/page.mp4", {page});
  const auto error = load(*assetAt("/page.mp4"));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), AVErrorFileFormatNotRecognized) << error->localizedDescription();
}

}  // namespace
}  // namespace zaffo
