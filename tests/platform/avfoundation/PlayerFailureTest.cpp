// SPDX-License-Identifier: Apache-2.0
#include <random>

#include "platform/avfoundation/PlayerFixture.h"

namespace zaffo {
namespace {

class PlayerFailureTest : public PlayerFixture {
 protected:
  /// How a clip came to its end.
  struct Outcome {
    AVPlayerItemStatus status;
    int ended, failed;
  };

  Outcome playThrough(const std::string& name) {
    const auto ended = count(AVPlayerItemDidPlayToEndTimeNotification);
    const auto failed = count(AVPlayerItemFailedToPlayToEndTimeNotification);
    item_ = open(name);
    player_->setRate(1);
    time_.advance(10 * kNanosecondsPerSecond);
    return {item_->status(), *ended, *failed};
  }

  std::shared_ptr<AVPlayerItem> item_;
};

TEST_F(PlayerFailureTest, WhatIsNoVideoFailsTheItemWithATextToActOn) {
  for (const char* name :
       {"empty.mp4", "text.mp4", "playlist_m3u8.mp4", "playlist_concat.mp4", "playlist_sdp.mp4",
        "playlist_dash.mp4", "cut_moov_last_5.mp4", "there is no such file.mp4"}) {
    const Outcome outcome = playThrough(name);
    EXPECT_EQ(outcome.status, AVPlayerItemStatus::Failed) << name;
    ASSERT_NE(item_->error(), nullptr) << name;
    EXPECT_EQ(item_->error()->domain(), AVFoundationErrorDomain) << name;
    EXPECT_FALSE(item_->error()->localizedDescription().empty()) << name;
    EXPECT_EQ(outcome.ended, 0) << name;
    EXPECT_EQ(shown(), std::nullopt) << name;
  }
}

TEST_F(PlayerFailureTest, WhatTheHeaderTellsFailsTheItemBeforeItIsReady) {
  for (const auto& [name, code] : {std::pair{"protected.mp4", AVErrorContentIsProtected},
                                   {"protected_with_sound.mp4", AVErrorContentIsProtected},
                                   {"protected.webm", AVErrorContentIsProtected},
                                   {"unknown_codec.mp4", AVErrorDecoderNotFound},
                                   {"unknown_codec_with_sound.mp4", AVErrorDecoderNotFound},
                                   {"refused_codec.mp4", AVErrorDecoderNotFound},
                                   {"absurd_size.mp4", AVErrorDecoderNotFound}}) {
    const auto item = loadedItem(name);
    player_->replaceCurrentItemWithPlayerItem(item);
    EXPECT_EQ(item->status(), AVPlayerItemStatus::Failed) << name;
    ASSERT_NE(item->error(), nullptr) << name;
    EXPECT_EQ(item->error()->code(), code) << name;
    player_->setRate(1);
    EXPECT_EQ(player_->rate(), 0) << name;
  }
}

TEST_F(PlayerFailureTest, ThePictureIsPlayedWithoutSoundThatCannotBeDecoded) {
  const auto ended = count(AVPlayerItemDidPlayToEndTimeNotification);
  const auto item = open("protected_sound.mp4");
  EXPECT_EQ(item->status(), AVPlayerItemStatus::ReadyToPlay);
  player_->setRate(1);
  time_.advance(5 * kNanosecondsPerSecond);
  EXPECT_EQ(*ended, 1);
  EXPECT_EQ(shown(), 119);
}

TEST_F(PlayerFailureTest, WhatCannotBeDecodedFailsTheItemAndItsPreroll) {
  for (const char* name : {"unknown_codec.mp4", "refused_codec.mp4", "protected.mp4",
                           "no_key_frame.mp4", "no_key_frame_with_sound.mp4"}) {
    const auto failed = count(AVPlayerItemFailedToPlayToEndTimeNotification);
    const auto item = loadedItem(name);
    player_->replaceCurrentItemWithPlayerItem(item);
    std::optional<bool> prerolled;
    std::optional<AVPlayerItemStatus> statusAtPreroll;
    player_->prerollAtRate(1, [&](bool finished) {
      prerolled = finished;
      statusAtPreroll = item->status();
    });
    time_.settle();
    EXPECT_EQ(prerolled, false) << name;
    EXPECT_EQ(statusAtPreroll, AVPlayerItemStatus::Failed) << name;
    EXPECT_NE(item->error(), nullptr) << name;
    EXPECT_EQ(shown(), std::nullopt) << name;
    player_->setRate(1);
    EXPECT_EQ(player_->rate(), 0) << name;
  }
}

TEST_F(PlayerFailureTest, ADamagedHalfPlaysAsFarAsItGoesAndEndsOnce) {
  const Outcome outcome = playThrough("damaged_half.mp4");
  EXPECT_EQ(outcome.ended + outcome.failed, 1);
  EXPECT_TRUE(shown().has_value());
  EXPECT_EQ(player_->rate(), 0);
}

TEST_F(PlayerFailureTest, EveryCutFileEndsOneWayOrTheOther) {
  for (const char* kind : {"cut_", "cut_moov_last_"}) {
    for (int tenth = 1; tenth <= 9; ++tenth) {
      const std::string name = kind + std::to_string(tenth) + ".mp4";
      const Outcome outcome = playThrough(name);
      const bool refused = outcome.status == AVPlayerItemStatus::Failed && outcome.ended == 0;
      EXPECT_TRUE(refused || outcome.ended + outcome.failed == 1) << name;
      EXPECT_EQ(outcome.status == AVPlayerItemStatus::Failed, item_->error() != nullptr) << name;
      EXPECT_LE(outcome.failed, 1) << name;
    }
  }
}

TEST_F(PlayerFailureTest, TheNotificationOfAStopBeforeTheEndTellsWhy) {
  std::vector<NSNotification> told;
  const auto observer = std::make_shared<int>();
  for (const char* name :
       {AVPlayerItemDidPlayToEndTimeNotification, AVPlayerItemFailedToPlayToEndTimeNotification}) {
    NSNotificationCenter::defaultCenter().addObserver(
        observer, name, nullptr, [&told](const NSNotification& one) { told.push_back(one); });
  }
  playThrough("cut_5.mp4");
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0].name, AVPlayerItemFailedToPlayToEndTimeNotification);
  using Error = NSErrorPtr;
  ASSERT_TRUE(told[0].userInfo.contains(AVPlayerItemFailedToPlayToEndTimeErrorKey));
  const auto* error =
      std::any_cast<Error>(&told[0].userInfo.at(AVPlayerItemFailedToPlayToEndTimeErrorKey));
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(*error, item_->error());
  playThrough("video_only.mp4");
  ASSERT_EQ(told.size(), 2u);
  EXPECT_EQ(told[1].name, AVPlayerItemDidPlayToEndTimeNotification);
  EXPECT_TRUE(told[1].userInfo.empty());
}

TEST_F(PlayerFailureTest, AbsurdDurationsEndWhereTheDataEnds) {
  for (const char* name : {"zero_duration.mp4", "absurd_duration.mp4"}) {
    const Outcome outcome = playThrough(name);
    EXPECT_EQ(outcome.ended, 1) << name;
    EXPECT_EQ(shown(), 119) << name;
  }
}

TEST_F(PlayerFailureTest, TheSmallestAndTheLargestPictureAreShown) {
  for (const auto& [name, width] : {std::pair{"tiny.mp4", 16}, {"huge.mp4", 8192}}) {
    open(name);
    const auto picture = player_->videoOutput()->pictureAtHostTime(TimeSource::now());
    ASSERT_NE(picture.buffer, nullptr) << name;
    EXPECT_EQ(picture.buffer->cropWidth, width) << name;
  }
}

TEST_F(PlayerFailureTest, AnItemThatAnotherPlayerHasIsRefusedAndNothingChanges) {
  const auto item = open("video_only.mp4");
  auto other = AVPlayer::create();
  const auto own = loadedItem("h264_30.mp4");
  other->replaceCurrentItemWithPlayerItem(own);
  time_.settle();
  EXPECT_THROW(other->replaceCurrentItemWithPlayerItem(item), NSErrorException);
  EXPECT_EQ(other->currentItem(), own);
  EXPECT_EQ(player_->currentItem(), item);
  EXPECT_EQ(shown(), 0);
  player_->setRate(1);
  other->setRate(1);
  time_.advance(kNanosecondsPerSecond);
  EXPECT_NEAR(seconds(), 1, 0.01);
  EXPECT_GT(other->currentTime(), CMTimeMake(9, 10));
}

TEST_F(PlayerFailureTest, AnItemMayGoFromOnePlayerToAnother) {
  const auto item = open("video_only.mp4");
  player_->replaceCurrentItemWithPlayerItem(item);
  auto other = AVPlayer::create();
  player_->replaceCurrentItemWithPlayerItem(nullptr);
  other->replaceCurrentItemWithPlayerItem(item);
  EXPECT_EQ(other->currentItem(), item);
  other.reset();
  EXPECT_NO_THROW(player_->replaceCurrentItemWithPlayerItem(item)) << "its player is gone";
  time_.settle();
  EXPECT_EQ(shown(), 0);
}

TEST_F(PlayerFailureTest, AGoodItemAfterABadOnePlays) {
  playThrough("no_key_frame.mp4");
  const Outcome outcome = playThrough("video_only.mp4");
  EXPECT_EQ(outcome.status, AVPlayerItemStatus::ReadyToPlay);
  EXPECT_EQ(outcome.ended, 1);
}

TEST_F(PlayerFailureTest, EveryRealClipPlaysToItsEnd) {
  if (!test::realClip("flower.mp4")) GTEST_SKIP() << "the real clips are not at hand";
  for (const auto& entry :
       std::filesystem::directory_iterator(std::filesystem::path(ZAFFO_REAL_CLIPS))) {
    if (entry.path().extension() == ".md") continue;
    const auto ended = count(AVPlayerItemDidPlayToEndTimeNotification);
    const auto item = AVPlayerItem::playerItemWithAsset(loadedAsset(entry.path().string()));
    player_->replaceCurrentItemWithPlayerItem(item);
    player_->setRate(1);
    time_.advance(40 * kNanosecondsPerSecond);
    EXPECT_EQ(item->status(), AVPlayerItemStatus::ReadyToPlay) << entry.path();
    EXPECT_EQ(*ended, 1) << entry.path();
  }
}

/// Everything an application may do, at random and at any moment.
TEST_F(PlayerFailureTest, RandomUseInAnyOrderCompletesEverySeekAndPreroll) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto pick = [&random](int bound) { return static_cast<int>(random() % bound); };
  const char* names[] = {"h264_30.mp4",      "vp9_opus.webm",    "audio_only.m4a",
                         "damaged_half.mp4", "no_key_frame.mp4", "video_only.mp4"};
  std::vector<std::shared_ptr<AVPlayerItem>> items;
  for (const char* name : names) items.push_back(loadedItem(name));
  std::vector<std::shared_ptr<AVPlayer>> players;
  for (int i = 0; i < 4; ++i) players.push_back(AVPlayer::create());
  int asked = 0, answered = 0;
  const auto answer = [&answered](bool) { ++answered; };
  for (int step = 0; step < 400; ++step) {
    const std::size_t index = pick(static_cast<int>(players.size()));
    auto& player = players[index];
    switch (pick(8)) {
      case 0:
        player->replaceCurrentItemWithPlayerItem(
            AVPlayerItem::playerItemWithAsset(items[pick(6)]->asset()));
        break;
      case 1:
        player->setRate(static_cast<float>(pick(5)) / 2);
        break;
      case 2:
      case 3:
        ++asked;
        player->seekToTime(CMTimeMake(pick(500), 100), kCMTimeZero, kCMTimeZero, answer);
        break;
      case 4:
        ++asked;
        player->prerollAtRate(1, answer);
        break;
      case 5:
        player->cancelPendingPrerolls();
        break;
      case 6:
        time_.advance(pick(300) * kNanosecondsPerMillisecond);
        break;
      case 7:
        if (pick(4) == 0) player = AVPlayer::create();
        break;
    }
  }
  players.clear();
  time_.settle();
  EXPECT_EQ(answered, asked);
}

}  // namespace
}  // namespace zaffo
