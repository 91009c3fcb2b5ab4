#include "platform/media/playback/SoundSupply.h"

#include <gtest/gtest.h>

#include "doubles/ManualTime.h"
#include "doubles/ScriptedSampleSource.h"
#include "platform/media/Decoding.h"
#include "platform/media/GatedSource.h"
#include "platform/media/output/CapturedOutput.h"

namespace zaffo::media {
namespace {

/// Sound beside a clock that stands at its beginning.
class SoundSupplyTest : public testing::Test {
 protected:
  static int64_t now() { return TimeSource::now(); }
  /// How long after now the clock leaves its place, in frames of the output.
  [[nodiscard]] int64_t framesUntilStart() const {
    const CMTime distance = clock_.positionAt(now()) - clock_.timeAt(now());
    return std::llround(CMTimeGetSeconds(distance) * CapturedOutput::kRate);
  }

  ManualTime time_;
  CapturedOutput output_;
  std::shared_ptr<GatedSource> source_ =
      std::make_shared<GatedSource>(openClip(test::clip("loop_tone_3_s.mov")));
  PlaybackClock clock_{CMTimeMake(3, 1)};
};

TEST_F(SoundSupplyTest, WithoutSoundTheClockStartsAtOnce) {
  SoundSupply sound(std::make_shared<ScriptedSampleSource>(), {}, output_);
  EXPECT_TRUE(sound.prefill(kCMTimeZero));
  EXPECT_FALSE(sound.failed());
  sound.start(clock_, 1, now());
  EXPECT_EQ(framesUntilStart(), 0);
  EXPECT_EQ(clock_.timebase()->masterClock(), CMClockGetHostTimeClock());
  EXPECT_FALSE(sound.end());
  EXPECT_FALSE(sound.nextFillHostTime());
}

TEST_F(SoundSupplyTest, TheClockStartsWhenTheFirstSoundIsHeardAndFollowsTheOutput) {
  SoundSupply sound(source_, {}, output_);
  ASSERT_TRUE(sound.prefill(kCMTimeZero));
  sound.start(clock_, 1, now());
  ASSERT_EQ(output_.starts().size(), 1u);
  EXPECT_NEAR(static_cast<double>(framesUntilStart()),
              static_cast<double>(output_.starts().front() - output_.present()), 1);
  EXPECT_EQ(clock_.timebase()->masterClock(), output_.clock());
  EXPECT_FALSE(sound.end()->isOver);
  EXPECT_TRUE(sound.nextFillHostTime());
}

TEST_F(SoundSupplyTest, PrefillsAsSoonAsTheSourceHasEnough) {
  source_->let(0);
  SoundSupply sound(source_, {}, output_);
  int ready = 0;
  sound.setReadyHandler([&ready] { ++ready; });
  EXPECT_FALSE(sound.prefill(kCMTimeZero));
  source_->let(1'000'000);
  EXPECT_EQ(ready, 1);
  EXPECT_TRUE(sound.prefill(kCMTimeZero));
}

TEST_F(SoundSupplyTest, JoinsInAtItsPlaceAfterAChangeOfRate) {
  SoundSupply sound(source_, {}, output_);
  ASSERT_TRUE(sound.prefill(kCMTimeZero));
  sound.start(clock_, 1, now());
  time_.advance(500 * kNanosecondsPerMillisecond);
  ASSERT_TRUE(clock_.changeRate(2, now()));
  sound.joinAgain(clock_, 2);
  ASSERT_EQ(output_.starts().size(), 2u);
  EXPECT_GT(output_.starts().back(), output_.present());
}

TEST_F(SoundSupplyTest, AStopCallsOffWhatWaitsToJoinIn) {
  SoundSupply sound(source_, {}, output_);
  ASSERT_TRUE(sound.prefill(kCMTimeZero));
  sound.start(clock_, 1, now());
  time_.advance(500 * kNanosecondsPerMillisecond);
  source_->let(0);
  ASSERT_TRUE(clock_.changeRate(2, now()));
  sound.joinAgain(clock_, 2);
  EXPECT_EQ(output_.starts().size(), 1u) << "it waits for the source";
  sound.stop();
  source_->let(1'000'000);
  sound.join();
  EXPECT_EQ(output_.starts().size(), 1u);
}

TEST_F(SoundSupplyTest, IsSilentOnceItIsClosed) {
  SoundSupply sound(source_, {}, output_);
  ASSERT_TRUE(sound.prefill(kCMTimeZero));
  sound.start(clock_, 1, now());
  sound.close();
  sound.setVolume(0.5f);
  sound.fill();
  sound.join();
  sound.stop();
  EXPECT_FALSE(sound.nextFillHostTime());
}

}  // namespace
}  // namespace zaffo::media
