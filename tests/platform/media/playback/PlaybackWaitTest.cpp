// SPDX-License-Identifier: Apache-2.0

// A playback whose source has nothing for a while.

#include "platform/media/playback/PlaybackFixture.h"

namespace zaffo::media {
namespace {

class PlaybackWaitTest : public PlaybackFixture {
 protected:
  static constexpr int kCount = 120;

  void open(int soundSeconds) {
    PlaybackFixture::open({.options = "g=12;bf=2", .count = kCount}, soundSeconds);
  }
  /// Plays on for half a second, then with what the source has given, until
  /// that is over.
  void runDry(std::optional<int> track = std::nullopt) {
    setRate(1);
    time_.advance(kSecond / 2);
    source_->let(0, track);
    time_.advance(2 * kSecond);
  }
};

TEST_F(PlaybackWaitTest, TheClockStandsStillWhereThePicturesEnd) {
  open(0);
  runDry();
  EXPECT_FALSE(runs());
  EXPECT_GT(seconds(), 0.5);
  EXPECT_LT(seconds(), 0.8);
  const double place = seconds();
  const auto picture = shown();
  time_.advance(10 * kSecond);
  EXPECT_EQ(seconds(), place);
  EXPECT_EQ(shown(), picture);
  EXPECT_EQ(ended_, 0);
}

TEST_F(PlaybackWaitTest, GoesOnByItselfWhereItStoodAndShowsEveryPicture) {
  open(0);
  runDry();
  const double place = seconds();
  const int picture = shown().value_or(-1);
  EXPECT_NEAR(place * kEncodedRate, picture + 1, 0.1) << "the last one was on show to its end";
  source_->let(1'000'000);
  time_.settle();
  ASSERT_TRUE(runs());
  EXPECT_NEAR(seconds(), place, 0.001);
  time_.advance(kFrame / 2);
  for (int number = picture + 1; number < picture + 40; ++number) {
    ASSERT_EQ(shown(), greyOf(number)) << number;
    time_.advance(kFrame);
  }
}

TEST_F(PlaybackWaitTest, TellsForHowLongItWaits) {
  open(0);
  EXPECT_FALSE(playback_->waitsForSource());
  runDry();
  EXPECT_TRUE(playback_->waitsForSource());
  setRate(0);
  EXPECT_FALSE(playback_->waitsForSource());
  EXPECT_TRUE(playback_->stoodStillDry());
  setRate(1);
  EXPECT_TRUE(playback_->waitsForSource());
  source_->let(1'000'000);
  time_.settle();
  EXPECT_FALSE(playback_->waitsForSource());
  setRate(0);
  EXPECT_FALSE(playback_->stoodStillDry());
}

TEST_F(PlaybackWaitTest, TellsThatItWaitsForItsFirstSound) {
  open(4);
  source_->let(0, kSound);
  playback_->seek(CMTimeMake(2, 1), kCMTimeZero, kCMTimeZero, nullptr);
  time_.settle();
  EXPECT_TRUE(playback_->waitsForSource());
  source_->let(1'000'000, kSound);
  time_.settle();
  EXPECT_FALSE(playback_->waitsForSource());
}

TEST_F(PlaybackWaitTest, TheEndIsToldWhenItIsTheEnd) {
  open(0);
  runDry();
  time_.advance(10 * kSecond);
  ASSERT_EQ(ended_, 0);
  source_->let(1'000'000);
  time_.advance(5 * kSecond);
  EXPECT_EQ(ended_, 1);
  EXPECT_EQ(failed_, 0);
  EXPECT_EQ(shown(), greyOf(kCount - 1));
}

TEST_F(PlaybackWaitTest, ThePictureWaitsForTheSound) {
  open(4);
  runDry(kSound);
  EXPECT_FALSE(runs());
  const double place = seconds();
  EXPECT_GT(place, 0.5);
  EXPECT_LT(place, 1.5);
  source_->let(1'000'000, kSound);
  time_.settle();
  const int64_t start = output_.starts().back();
  time_.advance(kSecond);
  EXPECT_TRUE(runs());
  EXPECT_NEAR(seconds(), place + 1, 0.05);
  EXPECT_EQ(silencesIn(start, start + CapturedOutput::kRate / 2), 0);
}

TEST_F(PlaybackWaitTest, TheSoundWaitsForThePicture) {
  open(4);
  runDry(kPictures);
  EXPECT_FALSE(runs());
  const int64_t present = output_.present();
  EXPECT_EQ(silencesIn(present - CapturedOutput::kRate / 2, present), 50);
  source_->let(1'000'000, kPictures);
  time_.advance(kSecond);
  EXPECT_TRUE(runs());
  EXPECT_EQ(output_.starts().size(), 2u);
}

TEST_F(PlaybackWaitTest, APauseWhileItWaitsHolds) {
  open(4);
  runDry();
  setRate(0);
  source_->let(1'000'000);
  time_.advance(kSecond);
  EXPECT_FALSE(runs());
  const double place = seconds();
  setRate(1);
  time_.advance(kSecond);
  EXPECT_NEAR(seconds(), place + 1, 0.05);
}

TEST_F(PlaybackWaitTest, ASeekLeadsElsewhere) {
  open(4);
  runDry();
  std::optional<bool> finished;
  playback_->seek(CMTimeMake(3, 1), kCMTimeZero, kCMTimeZero,
                  [&finished](bool result) { finished = result; });
  source_->let(1'000'000);
  time_.settle();
  EXPECT_EQ(finished, true);
  EXPECT_EQ(shown(), greyOf(90));
  EXPECT_TRUE(runs());
}

TEST_F(PlaybackWaitTest, APrerollWaitsToo) {
  open(4);
  runDry();
  std::optional<bool> finished;
  playback_->preroll([&finished](bool result) { finished = result; });
  time_.settle();
  EXPECT_EQ(finished, std::nullopt);
  source_->let(1'000'000);
  time_.settle();
  EXPECT_EQ(finished, true);
}

TEST_F(PlaybackWaitTest, WhatFailsMeanwhileIsTold) {
  open(0);
  runDry();
  memory_->failBehind(0);
  source_->let(1'000'000);
  time_.advance(kSecond);
  EXPECT_EQ(failed_, 1);
  EXPECT_EQ(ended_, 0);
}

}  // namespace
}  // namespace zaffo::media
