// SPDX-License-Identifier: Apache-2.0
#include <cmath>

#include "doubles/BusyPool.h"
#include "platform/avfoundation/AVComposition.h"
#include "platform/avfoundation/PlayerFixture.h"

namespace zaffo {
namespace {

class PlayerSeekTest : public PlayerFixture {
 protected:
  std::optional<bool> seekWithin(CMTime time, CMTime before, CMTime after) {
    std::optional<bool> result;
    player_->seekToTime(time, before, after, [&](bool finished) { result = finished; });
    time_.settle();
    return result;
  }
};

class SeekInEveryFrameOf : public PlayerSeekTest,
                           public testing::WithParamInterface<const char*> {};

TEST_P(SeekInEveryFrameOf, ShowsTheVeryFrame) {
  const auto item = open(GetParam());
  const auto track = item->asset()->tracksWithMediaType(AVMediaTypeVideo).front();
  const double rate = track->nominalFrameRate;
  const int frames =
      static_cast<int>(std::lround(CMTimeGetSeconds(track->timeRange.duration) * rate));
  ASSERT_GT(frames, 10);
  // Back and forth, so that no seek profits from the one before.
  for (int i = 0; i < frames; ++i) {
    const int frame = i * 37 % frames;
    ASSERT_EQ(seekExactly(CMTimeMakeWithSeconds((frame + 0.5) / rate, 90000)), true);
    ASSERT_EQ(shown(), frame);
  }
}

INSTANTIATE_TEST_SUITE_P(Clips, SeekInEveryFrameOf,
                         testing::Values("h264_24.mp4", "h264_ntsc.mp4", "open_gop.mp4",
                                         "long_gop.mp4", "no_b_frames.mp4", "hevc.mp4",
                                         "vp9_opus.webm", "mpeg4_mp3.mp4", "fragmented.mp4"));

TEST_F(PlayerSeekTest, AFrameIsShownFromItsOwnTimeToJustBeforeTheNext) {
  open("h264_30.mp4");
  for (const int frame : {1, 29, 30, 31, 60, 77}) {
    EXPECT_EQ(seekExactly(CMTimeMake(frame, 30)), true);
    EXPECT_EQ(shown(), frame);
    EXPECT_EQ(seekExactly(CMTimeMake((frame + 1) * 1000 - 1, 30000)), true);
    EXPECT_EQ(shown(), frame);
  }
}

TEST_F(PlayerSeekTest, FindsTheVeryFrameFarBehindTheSyncSample) {
  open("one_key_frame.mp4");
  for (const int frame : {599, 301, 1, 450}) {
    EXPECT_EQ(seekExactly(CMTimeMake(2 * frame + 1, 60)), true);
    EXPECT_EQ(shown(), frame);
  }
}

TEST_F(PlayerSeekTest, FindsTheVeryFrameAtAVariableRate) {
  open("vfr.mp4");
  for (int i = 0; i < 60; ++i) {
    const int frame = i * 23 % 60;
    const int64_t shownAt = frame * 3000 + frame % 3 * 900;
    ASSERT_EQ(seekExactly(CMTimeMake(shownAt, 90000)), true);
    ASSERT_EQ(shown(), frame);
    const int64_t next = (frame + 1) * 3000 + (frame + 1) % 3 * 900;
    ASSERT_EQ(seekExactly(CMTimeMake(next - 1, 90000)), true);
    ASSERT_EQ(shown(), frame);
  }
}

TEST_F(PlayerSeekTest, AnEditListIsHonoured) {
  open("edit_list.mp4");
  EXPECT_EQ(shown(), 40);
  for (const int frame : {5, 1, 9, 0}) {
    EXPECT_EQ(seekExactly(CMTimeMake(2 * frame + 1, 50)), true);
    EXPECT_EQ(shown(), 40 + frame);
  }
}

TEST_F(PlayerSeekTest, PlayingGoesOnFromTheFrameSought) {
  open("h264_30.mp4");
  for (const double target : {1.25, 0.5, 3.0, 0.0}) {
    EXPECT_EQ(seekExactly(CMTimeMakeWithSeconds(target, 600)), true);
    player_->setRate(1);
    for (int i = 0; i < 15; ++i) {
      time_.advance(20 * kNanosecondsPerMillisecond);
      ASSERT_EQ(shown(), static_cast<int>(std::floor(seconds() * 30 + 1e-6))) << seconds();
    }
    player_->setRate(0);
  }
}

TEST_F(PlayerSeekTest, ASeekWhilePlayingGoesOnPlaying) {
  open("h264_30.mp4");
  player_->setRate(1);
  time_.advance(500 * kNanosecondsPerMillisecond);
  EXPECT_EQ(seekExactly(CMTimeMake(2, 1)), true);
  EXPECT_EQ(player_->rate(), 1);
  time_.advance(500 * kNanosecondsPerMillisecond);
  EXPECT_NEAR(seconds(), 2.5, 0.1);
  EXPECT_EQ(shown(), static_cast<int>(seconds() * 30));
}

TEST_F(PlayerSeekTest, ANewerSeekSupersedesOneInFlight) {
  open("h264_30.mp4");
  std::vector<std::pair<int, bool>> results;
  for (int i = 0; i < 20; ++i) {
    player_->seekToTime(CMTimeMake(i, 10), kCMTimeZero, kCMTimeZero,
                        [&results, i](bool finished) { results.emplace_back(i, finished); });
  }
  time_.settle();
  ASSERT_EQ(results.size(), 20u);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(results[i].first, i);
  EXPECT_TRUE(results.back().second);
  EXPECT_EQ(shown(), 57);
}

TEST_F(PlayerSeekTest, AToleranceLetsTheSyncSampleDo) {
  open("h264_30.mp4");
  std::optional<bool> result;
  player_->seekToTime(CMTimeMake(15, 10), CMTimeMake(1, 1), kCMTimeZero,
                      [&](bool finished) { result = finished; });
  time_.settle();
  EXPECT_EQ(result, true);
  EXPECT_EQ(shown(), 30);
  EXPECT_EQ(seconds(), 1.0);
  player_->seekToTime(CMTimeMake(15, 10), CMTimeMake(4, 10), kCMTimeZero, nullptr);
  time_.settle();
  EXPECT_EQ(shown(), 45);
  player_->seekToTime(CMTimeMake(39, 10));
  time_.settle();
  EXPECT_EQ(shown(), 90);
}

TEST_F(PlayerSeekTest, AToleranceAfterTheTimeLetsTheNextSyncSampleDo) {
  open("h264_30.mp4");
  EXPECT_EQ(seekWithin(CMTimeMake(19, 10), kCMTimeZero, CMTimeMake(1, 10)), true);
  EXPECT_EQ(shown(), 60);
  EXPECT_EQ(seconds(), 2.0);
  EXPECT_EQ(seekWithin(CMTimeMake(21, 10), kCMTimeZero, kCMTimePositiveInfinity), true);
  EXPECT_EQ(shown(), 90);
  EXPECT_EQ(seconds(), 3.0);
  player_->setRate(1);
  time_.advance(kNanosecondsPerSecond / 2);
  EXPECT_EQ(shown(), static_cast<int>(seconds() * 30)) << "and goes on from there";
}

TEST_F(PlayerSeekTest, TheVeryFrameIsShownWhereNoSyncSampleIsWithinTheTolerances) {
  open("h264_30.mp4");
  EXPECT_EQ(seekWithin(CMTimeMake(19, 10), CMTimeMake(1, 10), CMTimeMake(9, 100)), true);
  EXPECT_EQ(shown(), 57);
  EXPECT_EQ(seconds(), 1.9);
  EXPECT_EQ(seekWithin(CMTimeMake(35, 10), kCMTimeZero, kCMTimePositiveInfinity), true);
  EXPECT_EQ(shown(), 105) << "no sync sample follows";
  EXPECT_EQ(seconds(), 3.5);
  EXPECT_EQ(seekWithin(CMTimeMake(191, 100), CMTimeMake(1, 1000), CMTimeMake(1, 1000)), true);
  EXPECT_EQ(shown(), 57);
  EXPECT_EQ(seconds(), 1.91) << "not where its frame begins, which is too early";
}

TEST_F(PlayerSeekTest, TheSyncSampleBeforeTheTimeIsPreferred) {
  open("h264_30.mp4");
  EXPECT_EQ(seekWithin(CMTimeMake(19, 10), CMTimeMake(1, 1), CMTimeMake(1, 1)), true);
  EXPECT_EQ(shown(), 30);
}

TEST_F(PlayerSeekTest, TolerancesCountByTheirAbsoluteValuesAndThoseThatAreNoneForNone) {
  open("h264_30.mp4");
  EXPECT_EQ(seekWithin(CMTimeMake(19, 10), CMTimeMake(-1, 1), kCMTimeZero), true);
  EXPECT_EQ(shown(), 30);
  EXPECT_EQ(seekWithin(CMTimeMake(19, 10), kCMTimeZero, CMTimeMake(-1, 1)), true);
  EXPECT_EQ(shown(), 60);
  for (const CMTime none : {kCMTimeInvalid, kCMTimeIndefinite, kCMTimeNegativeInfinity}) {
    EXPECT_EQ(seekWithin(CMTimeMake(19, 10), none, none), true);
    EXPECT_EQ(shown(), 57);
    EXPECT_EQ(seconds(), 1.9);
  }
}

TEST_F(PlayerSeekTest, ASeekWithToleranceInALoopShowsAFrameWithin) {
  const auto composition = AVMutableComposition::create();
  const auto asset = loadedAsset(test::clip("h264_30.mp4"));
  const auto track = composition->addMutableTrackWithMediaType(AVMediaTypeVideo, 0);
  const auto source = asset->tracksWithMediaType(AVMediaTypeVideo).front();
  for (int copy = 0; copy < 3; ++copy) {  // each from frame 15 to 74: sync samples in 0.5 and 1.5 s
    NSErrorPtr error;
    ASSERT_TRUE(track->insertTimeRange({CMTimeMake(1, 2), CMTimeMake(2, 1)}, source,
                                       CMTimeMake(2 * copy, 1), &error));
  }
  player_->replaceCurrentItemWithPlayerItem(AVPlayerItem::playerItemWithAsset(composition));
  time_.settle();
  EXPECT_EQ(seekWithin(CMTimeMake(18, 10), kCMTimeZero, CMTimeMake(1, 1)), true);
  EXPECT_EQ(shown(), 30) << "the first sync sample behind the seam";
  EXPECT_EQ(seconds(), 2.5);
  EXPECT_EQ(seekWithin(CMTimeMake(18, 10), kCMTimeZero, CMTimeMake(6, 10)), true);
  EXPECT_EQ(shown(), 69);
}

TEST_F(PlayerSeekTest, TimesOutsideTheItemAreClamped) {
  open("h264_30.mp4");
  EXPECT_EQ(seekExactly(CMTimeMake(100, 1)), true);
  EXPECT_EQ(shown(), 119);
  EXPECT_EQ(seekExactly(CMTimeMake(-5, 1)), true);
  EXPECT_EQ(shown(), 0);
  EXPECT_EQ(seconds(), 0);
  EXPECT_EQ(seekExactly(kCMTimePositiveInfinity), true);
  EXPECT_EQ(shown(), 119);
}

TEST_F(PlayerSeekTest, ASeekToNoTimeFails) {
  open("h264_30.mp4");
  EXPECT_EQ(seekExactly(kCMTimeInvalid), false);
  EXPECT_EQ(seekExactly(kCMTimeIndefinite), false);
  EXPECT_EQ(shown(), 0);
}

TEST_F(PlayerSeekTest, ASeekWithoutAnItemFails) {
  EXPECT_EQ(seekExactly(kCMTimeZero), false);
}

TEST_F(PlayerSeekTest, ASeekThatAnotherItemCutsShortFails) {
  // One that has to decode, and one to the first frame, which the player kept.
  for (const CMTime time : {CMTimeMake(29, 10), kCMTimeZero}) {
    open("long_gop.mp4");
    std::optional<bool> result;
    {
      const BusyPool busy;  // the seek cannot have ended before the item goes
      player_->seekToTime(time, kCMTimeZero, kCMTimeZero,
                          [&](bool finished) { result = finished; });
      player_->replaceCurrentItemWithPlayerItem(nullptr);
    }
    EXPECT_EQ(result, std::nullopt) << "never before the main queue's next turn";
    time_.settle();
    EXPECT_EQ(result, false) << CMTimeGetSeconds(time);
  }
}

TEST_F(PlayerSeekTest, ARewindOfAnIdlePlayerReadsAndDecodesNothing) {
  const auto item = open("h264_30.mp4");
  player_->setRate(1);
  time_.advance(kNanosecondsPerSecond);
  player_->setRate(0);
  time_.settle();
  const auto first = [&] { return player_->videoOutput()->pictureAtHostTime(TimeSource::now()); };
  EXPECT_EQ(seekExactly(kCMTimeZero), true);
  const auto rewound = first().buffer;
  EXPECT_EQ(test::frameNumber(rewound), 0);
  EXPECT_EQ(seekExactly(CMTimeMake(1, 1)), true);
  EXPECT_EQ(seekExactly(kCMTimeZero), true);
  EXPECT_EQ(first().buffer, rewound) << "the first frame was kept, not decoded again";
}

}  // namespace
}  // namespace zaffo
