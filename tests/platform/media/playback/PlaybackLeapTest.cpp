// SPDX-License-Identifier: Apache-2.0

// A playback whose clock is suddenly elsewhere, as after the process was
// stopped.

#include "platform/media/playback/PlaybackFixture.h"

namespace zaffo::media {
namespace {

class PlaybackLeapTest : public PlaybackFixture {
 protected:
  static constexpr int kGroup = 12, kCount = 900;

  ~PlaybackLeapTest() override {
    playback_->close();
    time_.settle();
    playback_.reset();
  }
  void open(int soundSeconds) {
    PlaybackFixture::open({.options = "g=12;bf=2", .count = kCount}, soundSeconds);
    setRate(1);
    time_.advance(kSecond);
  }
};

TEST_F(PlaybackLeapTest, GoesToTheRightPictureWithoutWhatLiesBetween) {
  open(0);
  const int read = memory_->reads();
  time_.leap(20 * kSecond);
  EXPECT_NEAR(seconds(), 21, 0.001);
  EXPECT_EQ(shown(), greyOf(630));
  EXPECT_LT(memory_->reads() - read, 4 * kGroup) << "of 600";
  EXPECT_TRUE(runs());
  time_.advance(kSecond);
  EXPECT_NEAR(seconds(), 22, 0.001);
  EXPECT_EQ(shown(), greyOf(660));
}

TEST_F(PlaybackLeapTest, TheSoundGoesOnAtItsPlace) {
  open(30);
  const int read = source_->asked(kSound);
  time_.leap(20 * kSecond);
  EXPECT_LT(source_->asked(kSound) - read, 60) << "of 940";
  ASSERT_EQ(output_.starts().size(), 2u);
  EXPECT_GT(output_.starts().back(), output_.present());
  time_.advance(kSecond);
  const int64_t start = output_.starts().back();
  EXPECT_EQ(silencesIn(start, output_.present()), 0);
}

TEST_F(PlaybackLeapTest, SoundAloneDoesToo) {
  const auto memory = std::make_shared<MemorySource>();
  Encoded sound =
      makeSound(0, int64_t{CapturedOutput::kRate} * 30, 1024, [](int64_t) { return 0.5f; });
  memory->setDuration(CMTimeMake(30, 1));
  memory->add({.type = AVMediaTypeAudio,
               .parameters = std::move(sound.parameters),
               .samples = std::move(sound.samples),
               .formats = {}});
  playback_ = Playback::create(memory, output_, {});
  setRate(1);
  time_.advance(kSecond);
  const int read = memory->reads();
  time_.leap(20 * kSecond);
  EXPECT_LT(memory->reads() - read, 60) << "of 940";
  time_.advance(kSecond);
  EXPECT_NEAR(seconds(), 22, 0.05);
  EXPECT_EQ(silencesIn(output_.starts().back(), output_.present()), 0);
}

TEST_F(PlaybackLeapTest, BeyondTheEndShowsTheLastPictureAndTellsTheEnd) {
  open(30);
  time_.leap(100 * kSecond);
  time_.advance(kSecond);
  EXPECT_EQ(ended_, 1);
  EXPECT_EQ(shown(), greyOf(kCount - 1));
  EXPECT_NEAR(seconds(), 30, 0.001);
  EXPECT_FALSE(runs());
}

TEST_F(PlaybackLeapTest, ATimerThatIsALittleLateIsNoLeap) {
  open(30);
  time_.leap(kSecond / 2);
  EXPECT_EQ(output_.starts().size(), 1u);
  EXPECT_EQ(shown(), greyOf(44)) << "it began when its sound was heard";
}

TEST_F(PlaybackLeapTest, WhileItStandsStillNothingLeaps) {
  open(30);
  setRate(0);
  const double place = seconds();
  time_.leap(20 * kSecond);
  EXPECT_EQ(seconds(), place);
  EXPECT_EQ(shown(), greyOf(29));
}

}  // namespace
}  // namespace zaffo::media
