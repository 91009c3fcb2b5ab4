// SPDX-License-Identifier: Apache-2.0

// Sound that is played on while the device takes it long before it is heard.
#include <gtest/gtest.h>

#include "doubles/ManualTime.h"
#include "doubles/MemorySource.h"
#include "doubles/ScriptedAudioDevice.h"
#include "platform/media/Encoding.h"
#include "platform/media/output/AudioOutputEngine.h"
#include "platform/media/soundtrack/Soundtrack.h"

namespace zaffo::media {
namespace {

constexpr int64_t kRate = AudioOutputEngine::kSampleRate;
constexpr int64_t kPeriodFrames = 1009;  // no device takes as many at a time

/// No two frames in a row are alike, and none is silent.
float level(int64_t frame) {
  return 0.25f + static_cast<float>(frame % kPeriodFrames) / 4096;
}

int64_t frameOf(float value) {
  return std::llround((value - 0.25f) * 4096);
}

/// How many frames do not continue what was heard before them, once the sound has faded in.
int64_t breaks(const std::vector<float>& heard) {
  constexpr std::ptrdiff_t kFadeIn = 480;
  auto at = std::ranges::find_if(heard, [](float value) { return value != 0; });
  if (heard.end() - at <= 2 * kFadeIn) return -1;
  at += 2 * kFadeIn;
  int64_t count = 0;
  for (auto next = frameOf(*at); at < heard.end(); at += 2) {
    const int64_t frame = frameOf(*at);
    if (frame != next % kPeriodFrames) ++count;
    next = frame + 1;
  }
  return count;
}

struct Card {
  int latencyMilliseconds, pieceMilliseconds;
};

class SoundtrackLatencyTest : public testing::TestWithParam<Card> {
 protected:
  SoundtrackLatencyTest() {
    const int64_t latency = GetParam().latencyMilliseconds * kRate / 1000;
    card_.setBuffering({.latencyFrames = latency,
                        .pieceFrames = GetParam().pieceMilliseconds * kRate / 1000,
                        .leadInFrames = latency});
    auto encoded = makeSound(0, 12 * kRate, 1024, level);
    const auto source = std::make_shared<MemorySource>();
    source->setDuration(CMTimeMake(12, 1));
    source->add({.type = AVMediaTypeAudio,
                 .parameters = std::move(encoded.parameters),
                 .samples = std::move(encoded.samples),
                 .formats = {}});
    sound_ = Soundtrack::create(source, {}, *output_);
  }

  void start() {
    ASSERT_TRUE(sound_->prefill(kCMTimeZero));
    sound_->start(output_->earliestStartFrame(), 1);
    nextFill_ = sound_->nextFillHostTime();
  }
  /// Moves time and the sound card on together, and tops the sound up when it is time to.
  void run(int64_t milliseconds) {
    for (int64_t done = 0; done < milliseconds; done += 10) {
      card_.play(kRate / 100);
      time_.advance(10 * kNanosecondsPerMillisecond);
      if (!nextFill_ || time_.nanoseconds() < *nextFill_) continue;
      sound_->fill();
      nextFill_ = sound_->nextFillHostTime();
      EXPECT_TRUE(!nextFill_ || *nextFill_ >= time_.nanoseconds() + kLeastPause);
    }
  }

  static constexpr int64_t kLeastPause = 100 * kNanosecondsPerMillisecond;

  ManualTime time_;
  ScriptedAudioDevice card_;
  std::shared_ptr<AudioOutputEngine> output_ =
      AudioOutputEngine::create(dispatch_queue_create("test.audio"), card_.opener());
  std::unique_ptr<Soundtrack> sound_;
  std::optional<int64_t> nextFill_;
};

TEST_P(SoundtrackLatencyTest, NothingIsMissingOnADeviceThatIsOpen) {
  const auto input = output_->addInput(1);
  run(2500);
  ASSERT_TRUE(output_->onDevice());
  start();
  run(8000);
  EXPECT_EQ(breaks(card_.heard()), 0);
}

class SoundtrackTakeoverTest : public SoundtrackLatencyTest {};

TEST_P(SoundtrackTakeoverTest, NothingIsMissingOnceADeviceThatIsOpenedMeanwhileIsHeard) {
  start();
  run(8000);
  ASSERT_TRUE(output_->onDevice());
  EXPECT_EQ(breaks(card_.heard()), 0);
}

std::string nameOf(const testing::TestParamInfo<Card>& card) {
  return std::to_string(card.param.latencyMilliseconds) + "ms_" +
         std::to_string(card.param.pieceMilliseconds) + "ms_at_a_time";
}

constexpr Card kCards[] = {{100, 0},   {100, 50},  {300, 0},  {300, 150},  {400, 200}, {600, 0},
                           {600, 150}, {600, 300}, {1000, 0}, {1000, 250}, {1000, 400}};
INSTANTIATE_TEST_SUITE_P(Cards, SoundtrackLatencyTest, testing::ValuesIn(kCards), nameOf);
INSTANTIATE_TEST_SUITE_P(WithoutDelay, SoundtrackLatencyTest, testing::Values(Card{0, 0}), nameOf);
INSTANTIATE_TEST_SUITE_P(Cards, SoundtrackTakeoverTest, testing::ValuesIn(kCards), nameOf);

}  // namespace
}  // namespace zaffo::media
