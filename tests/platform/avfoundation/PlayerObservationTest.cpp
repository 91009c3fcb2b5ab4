// SPDX-License-Identifier: Apache-2.0

// What a player's clients are told of its time, over the engine.

#include <cmath>

#include "doubles/MainLoopUntil.h"
#include "platform/avfoundation/PlayerFixture.h"

namespace zaffo {
namespace {

constexpr int64_t kMillisecond = kNanosecondsPerMillisecond;

class PlayerObservationTest : public PlayerFixture {
 protected:
  [[nodiscard]] std::shared_ptr<void> countBoundary(CMTime time) {
    return player_->addBoundaryTimeObserverForTimes({time}, dispatch_get_main_queue(),
                                                    [this] { ++boundaries_; });
  }
  [[nodiscard]] std::shared_ptr<void> noteEvery(CMTime interval) {
    return player_->addPeriodicTimeObserverForInterval(
        interval, dispatch_get_main_queue(),
        [this](CMTime time) { told_.push_back(CMTimeGetSeconds(time)); });
  }
  void playFor(int64_t milliseconds) {
    player_->setRate(1);
    time_.advance(milliseconds * kMillisecond);
  }

  int boundaries_ = 0;
  std::vector<double> told_;
};

TEST_F(PlayerObservationTest, ABoundaryOfThePresentItemIsToldWhenItIsPassed) {
  open("video_only.mp4");
  const auto token = countBoundary(CMTimeMake(1, 2));
  playFor(450);
  EXPECT_EQ(boundaries_, 0);
  playFor(100);
  EXPECT_EQ(boundaries_, 1);
}

TEST_F(PlayerObservationTest, WhatIsObservedBeforeThereIsAnItemIsToldOfThatItem) {
  const auto boundary = countBoundary(CMTimeMake(1, 2));
  const auto periodic = noteEvery(CMTimeMake(1, 10));
  open("video_only.mp4");
  told_.clear();
  playFor(1050);
  EXPECT_EQ(boundaries_, 1);
  EXPECT_GE(told_.size(), 10u);
}

TEST_F(PlayerObservationTest, ObserversGoOnWithTheNextItem) {
  open("video_only.mp4");
  const auto boundary = countBoundary(CMTimeMake(1, 2));
  const auto periodic = noteEvery(CMTimeMake(1, 10));
  playFor(1050);
  EXPECT_EQ(boundaries_, 1);
  open("no_b_frames.mp4");
  told_.clear();
  playFor(1050);
  EXPECT_EQ(boundaries_, 2);
  ASSERT_GE(told_.size(), 10u);
  for (const double time : told_) EXPECT_LE(time, 1.05) << "the time of the item before";
}

TEST_F(PlayerObservationTest, ARemovedObserverIsToldNothingAndTheOthersAre) {
  open("video_only.mp4");
  const auto removedBoundary = countBoundary(CMTimeMake(1, 2));
  const auto removedPeriodic = noteEvery(CMTimeMake(1, 10));
  int others = 0;
  const auto other = player_->addBoundaryTimeObserverForTimes(
      {CMTimeMake(1, 2)}, dispatch_get_main_queue(), [&others] { ++others; });
  time_.settle();
  told_.clear();
  player_->removeTimeObserver(removedBoundary);
  player_->removeTimeObserver(removedPeriodic);
  player_->removeTimeObserver(removedPeriodic);
  playFor(1050);
  EXPECT_EQ(boundaries_, 0);
  EXPECT_TRUE(told_.empty());
  EXPECT_EQ(others, 1);
}

TEST_F(PlayerObservationTest, ARemovedObserverLetsGoOfItsHandler) {
  const auto held = std::make_shared<int>();
  auto token =
      player_->addBoundaryTimeObserverForTimes({kCMTimeZero}, dispatch_get_main_queue(), [held] {});
  player_->removeTimeObserver(token);
  token.reset();
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(PlayerObservationTest, TheBoundaryThatPlayingStartsAtIsTold) {
  for (const char* name : {"video_only.mp4", "h264_30.mp4"}) {
    open(name);
    boundaries_ = 0;
    const auto token = countBoundary(CMTimeMake(1, 1));
    EXPECT_EQ(seekExactly(CMTimeMake(1, 1)), true);
    EXPECT_EQ(boundaries_, 0) << name;
    playFor(500);
    EXPECT_EQ(boundaries_, 1) << name;
    player_->removeTimeObserver(token);
    player_->setRate(0);
  }
}

/// Between the start and the word of it time goes on by itself.
TEST(PlayerObservationInRealTime, TheBoundaryThatPlayingStartsAtIsTold) {
  const auto player = AVPlayer::create();
  int boundaries = 0;
  const auto token = player->addBoundaryTimeObserverForTimes(
      {kCMTimeZero}, dispatch_get_main_queue(), [&boundaries] { ++boundaries; });
  player->replaceCurrentItemWithPlayerItem(AVPlayerItem::playerItemWithAsset(
      AVAsset::assetWithURL(NSURL::fileURLWithPath(test::clip("video_only.mp4")))));
  player->setRate(1);
  const auto hasBegun = [&] { return player->currentTime() > CMTimeMake(1, 10); };
  EXPECT_TRUE(runMainLoopUntil(hasBegun, 10 * kNanosecondsPerSecond));
  EXPECT_TRUE(runMainLoopUntil([&] { return boundaries > 0; }, kNanosecondsPerSecond));
  EXPECT_EQ(boundaries, 1);
}

}  // namespace
}  // namespace zaffo
