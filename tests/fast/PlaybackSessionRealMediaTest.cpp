// SPDX-License-Identifier: Apache-2.0
#include "fast/DamagedClip.h"
#include "fast/RealMediaTest.h"

namespace zaffo {
namespace {

using testing::IsEmpty;

constexpr int kFrames = 120;  // of h264_30.mp4, 30 a second, B frames among them
constexpr int64_t kFrame = kNanosecondsPerSecond / 30;

CMTime timeOfFrame(int frame) {
  return CMTimeMake(frame, 30);
}

class PlaybackSessionRealMediaTest : public RealMediaTest {
 protected:
  CVPixelBufferPtr lastDrawn_;
};

TEST_F(PlaybackSessionRealMediaTest, ShowsTheFirstFrameAfterStartAndStandsStill) {
  ASSERT_EQ(start(test::clip("h264_30.mp4")), nullptr);
  EXPECT_EQ(shown(), 0);
  time.advance(kNanosecondsPerSecond / 2);
  EXPECT_EQ(shown(), 0);
  EXPECT_EQ(session->currentTime(), kCMTimeZero);
}

TEST_F(PlaybackSessionRealMediaTest, ShowsTheVeryFrameAfterASeekToEachStandingStill) {
  ASSERT_EQ(start(test::clip("h264_30.mp4")), nullptr);
  for (int frame = kFrames - 1; frame >= 0; --frame) {
    seek(timeOfFrame(frame));
    EXPECT_EQ(shown(), frame);
  }
  for (int frame = 0; frame < kFrames; ++frame) {
    seek(CMTimeMake(2 * frame + 1, 60));  // in its middle
    EXPECT_EQ(shown(), frame);
  }
}

/// A session each: one that was read to its end twice stops its timebase for the earlier end too,
/// whatever it plays by then.
TEST_F(PlaybackSessionRealMediaTest, ShowsTheVeryFrameAfterASeekToEachWhilePlaying) {
  for (int frame = 0; frame < kFrames - 2; ++frame) {
    ASSERT_EQ(start(test::clip("h264_30.mp4")), nullptr);
    session->setRate(1);
    time.advance(kFrame);
    seek(timeOfFrame(frame));
    EXPECT_EQ(session->rate(), 1);
    EXPECT_EQ(shown(), frame);
    time.advance(kFrame + kFrame / 2);
    EXPECT_EQ(shown(), frame + 1);
    session.reset();
  }
}

TEST_F(PlaybackSessionRealMediaTest, ASeekFarBehindTheSyncSampleShowsTheVeryFrame) {
  ASSERT_EQ(start(test::clip("one_key_frame.mp4")), nullptr);
  for (const int frame : {599, 301, 1, 450}) {
    seek(CMTimeMake(2 * frame + 1, 60));
    EXPECT_EQ(shown(), frame);
  }
  session->setRate(1);
  time.advance(10 * kFrame);
  EXPECT_EQ(shown(), 460);
}

TEST_F(PlaybackSessionRealMediaTest, EveryFrameComesAtItsTime) {
  ASSERT_EQ(start(test::clip("h264_30.mp4")), nullptr);
  session->setRate(1);
  time.advance(kFrame / 2);
  for (int frame = 0; frame < kFrames - 2; ++frame) {
    EXPECT_EQ(shown(), frame);
    time.advance(kFrame);
  }
}

TEST_F(PlaybackSessionRealMediaTest, FollowsChangesOfTheRate) {
  ASSERT_EQ(start(test::clip("h264_30.mp4")), nullptr);
  session->setRate(0.5);
  time.advance(10 * kFrame + kFrame / 2);
  EXPECT_EQ(shown(), 5);
  session->setRate(2);
  time.advance(10 * kFrame);
  EXPECT_EQ(shown(), 25);
  session->setRate(0);
  time.advance(10 * kFrame);
  EXPECT_EQ(shown(), 25);
  session->setRate(1);
  time.advance(10 * kFrame);
  EXPECT_EQ(shown(), 35);
}

TEST_F(PlaybackSessionRealMediaTest, StandsOnTheLastFrameAtTheEnd) {
  for (const double rate : {1.0, 2.0}) {
    ASSERT_EQ(start(test::clip("h264_30.mp4")), nullptr);
    session->setRate(rate);
    time.advance(6 * kNanosecondsPerSecond);
    EXPECT_FALSE(ends.empty()) << "at rate " << rate;
    EXPECT_EQ(session->rate(), 0) << "at rate " << rate;
    EXPECT_EQ(shown(), kFrames - 1) << "at rate " << rate;
    session.reset();
  }
}

TEST_F(PlaybackSessionRealMediaTest, SaysTheEndOfRealClipsWithinAFrameOfTheLastOnesTime) {
  int tried = 0;
  for (const auto* const name : {"h265_bframes.mp4", "bt601.mp4", "bear-vp9.webm"}) {
    const auto path = test::realClip(name);
    if (!path) continue;
    ++tried;
    ASSERT_EQ(start(*path), nullptr) << name;
    session->setRate(1);
    seek(kCMTimeZero);
    ends.clear();
    const int64_t begun = elapsed();
    double last = 0, length = 0;
    const double seconds = CMTimeGetSeconds(item->duration());
    for (double t = 0; t < seconds + 1; t += 0.005) {
      time.advance(5 * kNanosecondsPerMillisecond);
      const auto drawn = picture();
      if (!drawn || drawn->buffer == lastDrawn_) continue;
      lastDrawn_ = drawn->buffer;
      length = t - last;
      last = t;
    }
    ASSERT_FALSE(ends.empty()) << name;
    EXPECT_EQ(ends[0].name, AVPlayerItemDidPlayToEndTimeNotification) << name;
    EXPECT_NEAR(static_cast<double>(ends[0].at - begun) / 1e9, last, length + 0.005) << name;
    lastDrawn_ = nullptr;
    session.reset();
  }
  if (tried == 0) GTEST_SKIP() << "the real clips are not at hand";
}

TEST_F(PlaybackSessionRealMediaTest, SaysTheEndWithinAFrameOfTheLastOnesTime) {
  for (const auto* const name : {"h264_30.mp4", "h264_25.mp4", "portrait.mp4"}) {
    ASSERT_EQ(start(test::clip(name)), nullptr) << name;
    session->setRate(1);
    seek(kCMTimeZero);  // whatever the paused session read to its end is withdrawn
    ends.clear();
    const int64_t begun = elapsed();
    time.advance(5 * kNanosecondsPerSecond);
    ASSERT_FALSE(ends.empty()) << name;  // a run that is read to its end twice says so twice
    EXPECT_EQ(ends[0].name, AVPlayerItemDidPlayToEndTimeNotification);
    const auto track = item->asset()->tracksWithMediaType(AVMediaTypeVideo).front();
    const auto frame = static_cast<int64_t>(1e9 / track->nominalFrameRate);
    const auto last =
        static_cast<int64_t>(1e9 * CMTimeGetSeconds(CMTimeRangeGetEnd(track->timeRange))) - frame;
    EXPECT_LE(std::abs(ends[0].at - begun - last), frame) << name;
    EXPECT_EQ(session->rate(), 0) << name;
    session.reset();
  }
}

TEST_F(PlaybackSessionRealMediaTest, StartsAgainAfterTheEndWhenToldTo) {
  ASSERT_EQ(start(test::clip("h264_30.mp4")), nullptr);
  for (int round = 0; round < 3; ++round) {
    session->setRate(1);
    seek(kCMTimeZero);
    EXPECT_EQ(shown(), 0);
    // The rate made it read on at the end, which it says again at once, perhaps before the seek.
    if (round > 0 && session->rate() == 0) session->setRate(1);
    EXPECT_EQ(session->rate(), 1);
    ends.clear();
    time.advance(5 * kNanosecondsPerSecond);
    EXPECT_FALSE(ends.empty());
  }
}

TEST_F(PlaybackSessionRealMediaTest, ASeekBeyondTheEndEndsAtOnce) {
  ASSERT_EQ(start(test::clip("h264_30.mp4")), nullptr);
  seek(CMTimeMake(60, 1));
  EXPECT_EQ(ends.size(), 1u);
  EXPECT_EQ(shown(), std::nullopt);
}

TEST_F(PlaybackSessionRealMediaTest, ASeekBeyondACutFailsToEnd) {
  for (const bool plays : {false, true}) {
    ASSERT_EQ(start(test::clip("cut_5.mp4")), nullptr);
    session->setRate(plays ? 1 : 0);
    ends.clear();
    seek(CMTimeMake(7, 2));
    ASSERT_EQ(ends.size(), 1u);
    EXPECT_EQ(ends[0].name, AVPlayerItemFailedToPlayToEndTimeNotification);
    EXPECT_EQ(session->rate(), 0);
    seek(kCMTimeZero);
    EXPECT_EQ(shown(), 0) << "what is there can be played all the same";
    session.reset();
  }
}

TEST_F(PlaybackSessionRealMediaTest, AFileThatEndsBehindItsHeaderFailsToEnd) {
  const DamagedClip clip("h264_30.mp4");
  clip.write(clip.bytes().substr(0, clip.bytes().find("mdat") + 4));
  ASSERT_EQ(start(clip.path()), nullptr);
  ASSERT_EQ(ends.size(), 1u);
  EXPECT_EQ(ends[0].name, AVPlayerItemFailedToPlayToEndTimeNotification);
}

TEST_F(PlaybackSessionRealMediaTest, ShowsATurnedClipUpright) {
  for (const int degrees : {90, 180, 270}) {
    const auto name = "rotated_" + std::to_string(degrees) + ".mp4";
    ASSERT_EQ(start(test::clip(name)), nullptr) << name;
    const auto drawn = picture();
    ASSERT_TRUE(drawn) << name;
    EXPECT_EQ(drawn->quarterTurns, degrees / 90) << name;
    const bool isLying = degrees != 180;  // as it stands in the file
    EXPECT_EQ(drawn->destination.size.width > drawn->destination.size.height, isLying) << name;
    session.reset();
  }
}

TEST_F(PlaybackSessionRealMediaTest, AClipWithoutAPictureShowsNothingAndStaysSilent) {
  ASSERT_EQ(start(test::clip("audio_only.m4a")), nullptr);
  EXPECT_EQ(shown(), std::nullopt);
  session->setRate(1);
  time.advance(3 * kNanosecondsPerSecond);
  EXPECT_THAT(ends, IsEmpty());
  EXPECT_EQ(session->rate(), 0);
}

}  // namespace
}  // namespace zaffo
