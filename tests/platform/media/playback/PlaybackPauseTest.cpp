// SPDX-License-Identifier: Apache-2.0

// What a playback holds that was paused in the midst of playing, and how it
// goes on.

#include "doubles/ProcessCounts.h"
#include "platform/media/playback/PlaybackFixture.h"

namespace zaffo::media {
namespace {

class PlaybackPauseTest : public PlaybackFixture {
 protected:
  /// Plays for a second, then stands still for so long.
  void pauseFor(int64_t span) {
    setRate(1);
    time_.advance(kSecond + kFrame / 2);
    setRate(0);
    time_.advance(span);
  }
  void openLong(int soundSeconds) { open({.options = "g=60;bf=2", .count = 90}, soundSeconds); }
};

TEST_F(PlaybackPauseTest, KeepsNoThreadOfADecoderForLong) {
  if (std::thread::hardware_concurrency() < 2) GTEST_SKIP() << "one core";
  open({.options = "g=12;bf=2", .count = 60, .size = 1920}, 0);
  setRate(1);
  time_.advance(kSecond);
  const std::size_t playing = threadCount();
  setRate(0);
  EXPECT_EQ(threadCount(), playing) << "whoever plays on at once needs them";
  time_.advance(kSecond);
  EXPECT_LE(countOfThreadsThatStay(threadCount, playing - 2), playing - 2);
  EXPECT_EQ(playback_->frames()->queued(), 0u);
  time_.advance(kSecond);
  EXPECT_FALSE(time_.hasTimer()) << "nor memory that the next decoder could have had";
}

TEST_F(PlaybackPauseTest, KeepsTheFirstPictureOnlyForASoonRewind) {
  openLong(0);
  const std::weak_ptr first = playback_->frames()->bufferAtHostTime(TimeSource::now());
  pauseFor(kSecond / 2);
  EXPECT_FALSE(first.expired());
  time_.advance(kSecond);
  EXPECT_EQ(shown(), greyOf(30));
  EXPECT_TRUE(first.expired());
}

TEST_F(PlaybackPauseTest, KeepsThePictureAndGoesOnBehindIt) {
  openLong(0);
  pauseFor(2 * kSecond);
  EXPECT_EQ(shown(), greyOf(30));
  const double place = seconds();
  setRate(1);
  EXPECT_EQ(shown(), greyOf(30));
  EXPECT_NEAR(seconds(), place, 0.001);
  for (int number = 31; number < 80; ++number) {
    time_.advance(kFrame);
    ASSERT_EQ(shown(), greyOf(number)) << number;
  }
}

TEST_F(PlaybackPauseTest, APictureThatNobodyDrewIsTheRightOne) {
  openLong(0);
  setRate(1);
  time_.advance(kSecond + kFrame * 3 / 2);
  setRate(0);
  time_.advance(2 * kSecond);
  EXPECT_EQ(shown(), greyOf(31));
}

TEST_F(PlaybackPauseTest, AShortOneDecodesNothingAgain) {
  openLong(3);
  pauseFor(kSecond / 2);
  const int seeks = memory_->seeks();
  const int read = source_->asked(kPictures);
  setRate(1);
  time_.advance(kFrame * 5 / 2);
  EXPECT_EQ(shown(), greyOf(31));
  EXPECT_LT(source_->asked(kPictures) - read, 12);
  EXPECT_LE(memory_->seeks() - seeks, 1) << "that of the sound";
}

TEST_F(PlaybackPauseTest, TheClockWaitsForWhatIsDecodedAgain) {
  openLong(3);
  pauseFor(2 * kSecond);
  source_->let(0, kPictures);
  const double place = seconds();
  setRate(1);
  time_.advance(kSecond);
  EXPECT_EQ(seconds(), place);
  EXPECT_EQ(shown(), greyOf(29));
  source_->let(1'000'000, kPictures);
  time_.advance(kSecond / 2);
  EXPECT_NEAR(seconds(), place + 0.5, 0.05);
}

TEST_F(PlaybackPauseTest, AtTheEndItKeepsTheLastPictureAlone) {
  openLong(3);
  setRate(1);
  time_.advance(5 * kSecond);
  ASSERT_EQ(ended_, 1);
  EXPECT_EQ(shown(), greyOf(89));
  EXPECT_FALSE(time_.hasTimer());
  playback_->seek(CMTimeMake(2, 1), kCMTimeZero, kCMTimeZero, nullptr);
  setRate(1);
  time_.advance(kSecond / 2);
  EXPECT_EQ(shown(), greyOf(74));
}

TEST_F(PlaybackPauseTest, ASeekAfterItIsExact) {
  openLong(0);
  pauseFor(2 * kSecond);
  for (const int number : {70, 10, 31, 30}) {
    playback_->seek(frames(number), kCMTimeZero, kCMTimeZero, nullptr);
    time_.advance(2 * kSecond);
    ASSERT_EQ(shown(), greyOf(number));
  }
}

}  // namespace
}  // namespace zaffo::media
