// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <limits>

#include "platform/avfoundation/PlayerFixture.h"
#include "platform/avfoundation/engine/EnginePlayer.h"
#include "platform/media/MediaServices.h"
#include "platform/media/output/CapturedOutput.h"

namespace zaffo {
namespace {

constexpr int64_t kMillisecond = kNanosecondsPerMillisecond;

class PlayerPlaybackTest : public PlayerFixture {
 protected:
  /// Starts to play and goes to the moment at which media time begins to move.
  void start() {
    player_->setRate(1);
    time_.settle();
    while (seconds() == 0) time_.advance(kMillisecond);
  }
};

TEST_F(PlayerPlaybackTest, IsReadyFromTheStartAndStaysSoWhateverBecomesOfItsItems) {
  EXPECT_EQ(player_->status(), AVPlayerStatus::ReadyToPlay);
  const auto item = open("text.mp4");
  ASSERT_EQ(item->status(), AVPlayerItemStatus::Failed);
  EXPECT_EQ(player_->status(), AVPlayerStatus::ReadyToPlay);
  EXPECT_EQ(player_->error(), nullptr);
}

TEST_F(PlayerPlaybackTest, AnItemWithLoadedKeysIsReadyTheMomentThePlayerGetsIt) {
  const auto item = loadedItem("h264_30.mp4");
  EXPECT_EQ(item->status(), AVPlayerItemStatus::Unknown);
  player_->replaceCurrentItemWithPlayerItem(item);
  EXPECT_EQ(item->status(), AVPlayerItemStatus::ReadyToPlay);
}

TEST_F(PlayerPlaybackTest, AnItemWhoseKeysAreNotLoadedIsLoadedByThePlayer) {
  const auto item = AVPlayerItem::playerItemWithAsset(
      AVAsset::assetWithURL(NSURL::fileURLWithPath(test::clip("h264_30.mp4"))));
  player_->replaceCurrentItemWithPlayerItem(item);
  EXPECT_EQ(item->status(), AVPlayerItemStatus::Unknown);
  time_.settle();
  EXPECT_EQ(item->status(), AVPlayerItemStatus::ReadyToPlay);
  EXPECT_EQ(shown(), 0);
}

TEST_F(PlayerPlaybackTest, ShowsTheFirstFrameWithoutBeingAskedTo) {
  open("h264_30.mp4");
  EXPECT_EQ(shown(), 0);
  EXPECT_EQ(seconds(), 0);
}

TEST_F(PlayerPlaybackTest, PrerollEndsOnTheMainQueueOnceTheFirstFrameIsThere) {
  player_->replaceCurrentItemWithPlayerItem(loadedItem("h264_30.mp4"));
  std::optional<int> shownAtPreroll;
  player_->prerollAtRate(1, [&](bool finished) {
    EXPECT_TRUE(finished);
    shownAtPreroll = shown();
  });
  EXPECT_FALSE(shownAtPreroll);
  time_.settle();
  EXPECT_EQ(shownAtPreroll, 0);
}

TEST_F(PlayerPlaybackTest, ACancelledPrerollEndsWithFalse) {
  player_->replaceCurrentItemWithPlayerItem(AVPlayerItem::playerItemWithAsset(
      AVAsset::assetWithURL(NSURL::fileURLWithPath(test::clip("h264_30.mp4")))));
  std::optional<bool> result;
  player_->prerollAtRate(1, [&](bool finished) { result = finished; });
  player_->cancelPendingPrerolls();
  time_.settle();
  EXPECT_EQ(result, false);
}

class EveryFrameOf : public PlayerPlaybackTest, public testing::WithParamInterface<const char*> {};

TEST_P(EveryFrameOf, IsShownInTurnForItsTime) {
  const auto item = open(GetParam());
  const auto track = item->asset()->tracksWithMediaType(AVMediaTypeVideo).front();
  const double rate = track->nominalFrameRate;
  const int frames =
      static_cast<int>(std::lround(CMTimeGetSeconds(track->timeRange.duration) * rate));
  ASSERT_GT(frames, 10);
  start();
  for (int frame = 0; frame < frames; ++frame) {
    // To the middle of the frame's time.
    const double target = (frame + 0.5) / rate;
    time_.advance(std::llround((target - seconds()) * 1e9));
    ASSERT_EQ(shown(), frame) << "at " << seconds();
  }
}

INSTANTIATE_TEST_SUITE_P(Clips, EveryFrameOf,
                         testing::Values("h264_24.mp4", "h264_25.mp4", "h264_ntsc.mp4",
                                         "h264_50.mp4", "h264_60.mp4", "open_gop.mp4",
                                         "no_b_frames.mp4", "hevc.mp4", "vp8_vorbis.webm",
                                         "vp9_opus.webm", "mpeg4_mp3.mp4", "fragmented.mp4",
                                         "video_only.mp4"));

TEST_F(PlayerPlaybackTest, PlaysToItsEndSaysSoOnceAndStands) {
  open("h264_30.mp4");
  const auto ended = count(AVPlayerItemDidPlayToEndTimeNotification);
  start();
  time_.advance(3900 * kMillisecond);
  EXPECT_EQ(*ended, 0);
  EXPECT_EQ(player_->rate(), 1);
  time_.advance(200 * kMillisecond);
  EXPECT_EQ(*ended, 1);
  EXPECT_EQ(player_->rate(), 0);
  EXPECT_NEAR(seconds(), 4.0, 0.05);
  EXPECT_EQ(shown(), 119);
  time_.advance(5 * kNanosecondsPerSecond);
  EXPECT_EQ(*ended, 1);
}

TEST_F(PlayerPlaybackTest, AFragmentedClipWhosePicturesComeLatePlaysToItsLastOne) {
  open("fragmented_late.mp4");  // from 2/30 s on
  const auto ended = count(AVPlayerItemDidPlayToEndTimeNotification);
  start();
  time_.advance(2050 * kMillisecond);
  EXPECT_EQ(shown(), 59);
  EXPECT_EQ(*ended, 0);
  time_.advance(50 * kMillisecond);
  EXPECT_EQ(*ended, 1);
  EXPECT_EQ(shown(), 59);
}

TEST_F(PlayerPlaybackTest, TheEndIsToldWithinAFrameOfItsTime) {
  open("video_only.mp4");
  const auto ended = count(AVPlayerItemDidPlayToEndTimeNotification);
  player_->setRate(1);
  time_.advance(1999 * kMillisecond);
  EXPECT_EQ(*ended, 0);
  time_.advance(33 * kMillisecond);
  EXPECT_EQ(*ended, 1);
}

TEST_F(PlayerPlaybackTest, PlaysAgainAfterARewindAtTheEnd) {
  open("video_only.mp4");
  const auto ended = count(AVPlayerItemDidPlayToEndTimeNotification);
  for (int round = 1; round <= 3; ++round) {
    player_->setRate(1);
    time_.advance(1050 * kMillisecond);
    EXPECT_EQ(shown(), 31);
    time_.advance(kNanosecondsPerSecond);
    EXPECT_EQ(*ended, round);
    EXPECT_EQ(seekExactly(kCMTimeZero), true);
    EXPECT_EQ(shown(), 0);
  }
}

TEST_F(PlayerPlaybackTest, AStopOnItsWayDoesNotStopAPlaybackThatWasStartedAnewMeanwhile) {
  open("video_only.mp4");
  const auto ended = count(AVPlayerItemDidPlayToEndTimeNotification);
  player_->setRate(1);
  time_.advance(3 * kNanosecondsPerSecond);
  ASSERT_EQ(*ended, 1);
  // At its end it ends again at once; the main thread hears of it only after it has rewound.
  player_->setRate(1);
  dispatch_wait_until_idle();
  player_->seekToTime(kCMTimeZero, kCMTimeZero, kCMTimeZero, nullptr);
  player_->setRate(1);
  time_.settle();
  EXPECT_EQ(*ended, 1);
  EXPECT_EQ(player_->rate(), 1);
  time_.advance(kNanosecondsPerSecond);
  EXPECT_NEAR(seconds(), 1, 0.01);
  time_.advance(kNanosecondsPerSecond + 100 * kMillisecond);
  EXPECT_EQ(*ended, 2);
}

TEST_F(PlayerPlaybackTest, AFailureOnItsWayDoesNotStopAnotherItemThatWasStartedMeanwhile) {
  const auto good = loadedItem("video_only.mp4");
  const auto failed = count(AVPlayerItemFailedToPlayToEndTimeNotification);
  const auto bad = loadedItem("no_key_frame.mp4");
  player_->replaceCurrentItemWithPlayerItem(bad);
  player_->setRate(1);
  dispatch_wait_until_idle();
  EXPECT_EQ(bad->status(), AVPlayerItemStatus::Failed);
  player_->replaceCurrentItemWithPlayerItem(good);
  player_->setRate(1);
  time_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(*failed, 0);
  EXPECT_EQ(player_->rate(), 1);
  EXPECT_NEAR(seconds(), 1, 0.01);
}

TEST_F(PlayerPlaybackTest, APausedPlayerStandsWhereItWas) {
  open("h264_30.mp4");
  start();
  time_.advance(kNanosecondsPerSecond);
  player_->setRate(0);
  time_.settle();
  const double paused = seconds();
  const auto frame = shown();
  time_.advance(10 * kNanosecondsPerSecond);
  EXPECT_EQ(seconds(), paused);
  EXPECT_EQ(shown(), frame);
  player_->setRate(1);
  time_.advance(500 * kMillisecond);
  EXPECT_NEAR(seconds(), paused + 0.5, 0.1);
  EXPECT_EQ(shown(), static_cast<int>(seconds() * 30));
}

TEST_F(PlayerPlaybackTest, TheRateScalesTheTimeOfPictures) {
  for (const float rate : {0.25f, 0.5f, 1.5f, 2.0f, 4.0f}) {
    open("h264_30.mp4");
    player_->setRate(rate);
    time_.settle();
    while (seconds() == 0) time_.advance(kMillisecond);
    const double before = seconds();
    time_.advance(700 * kMillisecond);
    EXPECT_NEAR(seconds() - before, 0.7 * rate, 1e-3);
    EXPECT_EQ(shown(), static_cast<int>(seconds() * 30));
    player_->replaceCurrentItemWithPlayerItem(nullptr);
    player_->setRate(0);
  }
}

TEST_F(PlayerPlaybackTest, AChangeOfRateWhilePlayingGoesOnFromThere) {
  open("h264_30.mp4");
  start();
  time_.advance(kNanosecondsPerSecond);
  const double before = seconds();
  player_->setRate(2);
  time_.advance(500 * kMillisecond);
  EXPECT_NEAR(seconds(), before + 1.0, 1e-3);
  EXPECT_EQ(shown(), static_cast<int>(seconds() * 30));
}

TEST_F(PlayerPlaybackTest, NegativeInfiniteAndNaNRatesStandStill) {
  open("h264_30.mp4");
  for (const float rate : {-1.0f, std::nanf(""), std::numeric_limits<float>::infinity()}) {
    player_->setRate(rate);
    EXPECT_EQ(player_->rate(), 0);
    time_.advance(kNanosecondsPerSecond);
    EXPECT_EQ(seconds(), 0);
  }
}

TEST_F(PlayerPlaybackTest, ARateSetBeforeTheItemStartsItAsSoonAsItIsReady) {
  player_->setRate(1);
  open("video_only.mp4");
  time_.advance(kNanosecondsPerSecond);
  EXPECT_NEAR(seconds(), 1, 0.01);
}

TEST_F(PlayerPlaybackTest, PlayingAtTheEndEndsAgainAtOnce) {
  for (const char* name : {"h264_30.mp4", "short_audio.mp4", "audio_only.m4a"}) {
    open(name);
    const auto ended = count(AVPlayerItemDidPlayToEndTimeNotification);
    player_->setRate(1);
    time_.advance(6 * kNanosecondsPerSecond);
    ASSERT_EQ(*ended, 1) << name;
    const double end = seconds();
    player_->setRate(1);
    time_.advance(kNanosecondsPerSecond);
    EXPECT_EQ(*ended, 2) << name;
    EXPECT_EQ(player_->rate(), 0) << name;
    EXPECT_EQ(seconds(), end) << name;
  }
}

TEST_F(PlayerPlaybackTest, SoundThatIsNotHeardStillTakesItsTime) {
  open("audio_only.m4a");  // 3 s
  const auto ended = count(AVPlayerItemDidPlayToEndTimeNotification);
  player_->setRate(3);
  time_.advance(900 * kMillisecond);
  EXPECT_EQ(*ended, 0);
  EXPECT_GT(seconds(), 2.5);
  time_.advance(300 * kMillisecond);
  EXPECT_EQ(*ended, 1);
}

TEST_F(PlayerPlaybackTest, APrerollMayHaveNoCompletion) {
  open("h264_30.mp4");
  player_->prerollAtRate(1, nullptr);
  time_.settle();
  EXPECT_EQ(shown(), 0);
}

TEST_F(PlayerPlaybackTest, ObserversAreToldNoTimeBeforeTheStart) {
  open("h264_30.mp4");
  std::vector<double> told;
  const auto token = player_->addPeriodicTimeObserverForInterval(
      CMTimeMake(1, 10), dispatch_get_main_queue(),
      [&](CMTime time) { told.push_back(CMTimeGetSeconds(time)); });
  for (const double from : {0.0, 2.0}) {
    player_->seekToTime(CMTimeMakeWithSeconds(from, 600), kCMTimeZero, kCMTimeZero, nullptr);
    time_.settle();
    told.clear();
    player_->setRate(1);
    time_.advance(500 * kMillisecond);
    EXPECT_GE(told.size(), 4u);
    for (const double time : told) EXPECT_GE(time, from);
    player_->setRate(0);
    time_.settle();
  }
  player_->removeTimeObserver(token);
}

TEST_F(PlayerPlaybackTest, AnotherItemTakesThePlaceOfTheFirstAtOnce) {
  open("h264_30.mp4");
  const auto generation = player_->videoOutput()->itemGeneration();
  player_->replaceCurrentItemWithPlayerItem(loadedItem("vp9_opus.webm"));
  EXPECT_FALSE(player_->videoOutput()->itemGeneration() == generation);
  time_.settle();
  EXPECT_EQ(shown(), 0);
  player_->replaceCurrentItemWithPlayerItem(nullptr);
  EXPECT_EQ(shown(), std::nullopt);
  EXPECT_EQ(player_->currentItem(), nullptr);
  EXPECT_EQ(seconds(), 0);
}

TEST_F(PlayerPlaybackTest, AReplacedItemTellsNothingMore) {
  open("video_only.mp4");
  const auto ended = count(AVPlayerItemDidPlayToEndTimeNotification);
  player_->setRate(1);
  time_.advance(1900 * kMillisecond);
  player_->replaceCurrentItemWithPlayerItem(nullptr);
  time_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(*ended, 0);
}

TEST_F(PlayerPlaybackTest, APlayerThatIsGoneLeavesNothingBehind) {
  auto item = open("h264_30.mp4");
  start();
  const std::weak_ptr<AVPlayerItem> weakItem = item;
  const std::weak_ptr<AVPlayer> weakPlayer = player_;
  const std::weak_ptr<AVAsset> weakAsset = item->asset();
  item.reset();
  player_.reset();
  EXPECT_TRUE(weakPlayer.expired());
  time_.settle();
  EXPECT_TRUE(weakItem.expired());
  EXPECT_TRUE(weakAsset.expired());
}

TEST_F(PlayerPlaybackTest, AResetOfMediaServicesMakesAPlayerUseless) {
  const auto item = open("h264_30.mp4");
  start();
  media::MediaServices::shared().reset();
  EXPECT_EQ(player_->status(), AVPlayerStatus::Failed);
  ASSERT_NE(player_->error(), nullptr);
  EXPECT_EQ(player_->error()->code(), AVErrorMediaServicesWereReset);
  EXPECT_EQ(player_->rate(), 0);
  EXPECT_EQ(shown(), std::nullopt);
  open("video_only.mp4");
  EXPECT_EQ(shown(), std::nullopt);
  EXPECT_EQ(AVPlayer::create()->status(), AVPlayerStatus::ReadyToPlay);
}

TEST_F(PlayerPlaybackTest, TheVolumeIsClampedAndKept) {
  EXPECT_EQ(player_->volume(), 1);
  player_->setVolume(0.25f);
  EXPECT_EQ(player_->volume(), 0.25f);
  player_->setVolume(7);
  EXPECT_EQ(player_->volume(), 1);
  player_->setVolume(-1);
  EXPECT_EQ(player_->volume(), 0);
}

TEST_F(PlayerPlaybackTest, AVolumeSetBeforeTheItemIsThereHoldsForIt) {
  const auto loudest = [this](float volume) {
    media::CapturedOutput output;
    auto player = EnginePlayer::create(output);
    player->setVolume(volume);
    player->replaceCurrentItemWithPlayerItem(loadedItem("audio_only.m4a"));
    player->setRate(1);
    time_.advance(kNanosecondsPerSecond);
    const auto heard = output.heard(0, output.present());
    player.reset();
    time_.settle();
    return *std::max_element(heard.begin(), heard.end());
  };
  EXPECT_GT(loudest(1), 0.4f);
  EXPECT_NEAR(loudest(0.25f), loudest(1) / 4, 1e-4);
}

TEST_F(PlayerPlaybackTest, SoundAloneAndPictureAloneBothPlayToTheirEnds) {
  for (const auto& [name, length] : {std::pair{"audio_only.m4a", 3.0},
                                     {"video_only.mp4", 2.0},
                                     {"short_audio.mp4", 2.0},
                                     {"long_audio.mp4", 2.0}}) {
    open(name);
    const auto ended = count(AVPlayerItemDidPlayToEndTimeNotification);
    player_->setRate(1);
    time_.advance(std::llround((length - 0.1) * 1e9));
    EXPECT_EQ(*ended, 0) << name;
    time_.advance(300 * kMillisecond);
    EXPECT_EQ(*ended, 1) << name;
  }
}

}  // namespace
}  // namespace zaffo
