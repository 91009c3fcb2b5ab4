// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/SoundSupply.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "doubles/ManualTime.h"
#include "doubles/ScriptedSampleSource.h"
#include "platform/dispatch/QueueBase.h"
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

  /// How many times nothing is heard for 10 ms.
  static int silencesIn(const std::vector<float>& sound) {
    int silences = 0;
    constexpr std::size_t kSpan = 960;
    for (std::size_t at = 0; at + kSpan <= sound.size(); at += kSpan) {
      const auto from = sound.begin() + static_cast<std::ptrdiff_t>(at);
      silences += std::all_of(from, from + kSpan, [](float each) { return each == 0; });
    }
    return silences;
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
  EXPECT_FALSE(time_.hasTimer());
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
  EXPECT_TRUE(time_.hasTimer()) << "for when the output is to be topped up";
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

TEST_F(SoundSupplyTest, FlowsByItselfUntilItsEndAndTellsThat) {
  SoundSupply sound(source_, {}, output_);
  int told = 0;
  sound.setReadyHandler([&told] { ++told; });
  ASSERT_TRUE(sound.prefill(kCMTimeZero));
  sound.start(clock_, 1, now());
  time_.advance(2400 * kNanosecondsPerMillisecond);
  EXPECT_EQ(told, 0);
  EXPECT_FALSE(sound.end()->isOver);
  time_.advance(400 * kNanosecondsPerMillisecond);
  EXPECT_EQ(told, 1);
  EXPECT_TRUE(sound.end()->isOver);
  const int64_t start = output_.starts().front();
  EXPECT_EQ(silencesIn(output_.heard(start, start + 28 * CapturedOutput::kRate / 10)), 0);
  EXPECT_FALSE(time_.hasTimer());
}

TEST_F(SoundSupplyTest, IsReadAndDecodedOnAQueueOfItsOwnOnceItFlows) {
  std::set<std::string> queues;
  source_->setAskedHandler([&queues](int) {
    const QueueBase* const queue = QueueBase::current();
    queues.insert(queue ? queue->label() : "none");
  });
  SoundSupply sound(source_, {}, output_);
  ASSERT_TRUE(sound.prefill(kCMTimeZero));
  sound.start(clock_, 1, now());
  queues.clear();
  time_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(queues, std::set<std::string>{"com.zaffo.sound"});
}

TEST_F(SoundSupplyTest, GoesOnAsSoonAsTheSourceHasMore) {
  source_->let(20);
  SoundSupply sound(source_, {}, output_);
  int told = 0;
  sound.setReadyHandler([&told] { ++told; });
  ASSERT_TRUE(sound.prefill(kCMTimeZero));
  sound.start(clock_, 1, now());
  time_.settle();
  const int writes = output_.writes();
  time_.advance(100 * kNanosecondsPerMillisecond);
  EXPECT_EQ(output_.writes(), writes) << "nothing more is to be had";
  source_->let(1'000'000);
  time_.settle();
  EXPECT_GT(output_.writes(), writes);
  EXPECT_GE(told, 1);
}

TEST_F(SoundSupplyTest, IsSilentOnceItIsClosed) {
  SoundSupply sound(source_, {}, output_);
  ASSERT_TRUE(sound.prefill(kCMTimeZero));
  sound.start(clock_, 1, now());
  sound.close();
  sound.setVolume(0.5f);
  sound.join();
  sound.stop();
  const int writes = output_.writes();
  time_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(output_.writes(), writes);
  EXPECT_FALSE(time_.hasTimer());
}

}  // namespace
}  // namespace zaffo::media
