// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "doubles/ManualTime.h"
#include "doubles/ScriptedAudioDevice.h"
#include "platform/media/FrameTime.h"
#include "platform/media/output/AudioOutputEngine.h"

namespace zaffo::media {
namespace {

constexpr int64_t kMillisecond = kNanosecondsPerMillisecond;
constexpr int64_t kFramesPerMillisecond = AudioOutputEngine::kSampleRate / 1000;

std::vector<float> constant(int64_t frames, float value) {
  return std::vector<float>(static_cast<size_t>(2 * frames), value);
}

class AudioOutputTest : public testing::Test {
 protected:
  AudioOutputTest() { time.settle(); }

  /// Moves time and the sound card on together, `milliseconds` in steps of ten, and watches the
  /// clock.
  void run(int64_t milliseconds) {
    for (int64_t done = 0; done < milliseconds; done += 10) {
      card.play(10 * kFramesPerMillisecond);
      time.advance(10 * kMillisecond);
      const int64_t shown = nowFrame();
      EXPECT_GE(shown, lastShown);
      EXPECT_LT(shown - lastShown, 15 * kFramesPerMillisecond);
      EXPECT_GT(shown - lastShown, 5 * kFramesPerMillisecond);
      lastShown = shown;
    }
  }

  int64_t nowFrame() const {
    return framesAtNanoseconds(output->clock()->nanosecondsAtHostTime(TimeSource::now()), 48000);
  }

  std::shared_ptr<AudioInput> playConstant(float value) {
    auto input = output->addInput(48000 * 60);
    input->restart(output->earliestStartFrame());
    input->write(constant(48000 * 60, value));
    return input;
  }

  ManualTime time;
  ScriptedAudioDevice card;
  std::shared_ptr<AudioOutputEngine> output =
      AudioOutputEngine::create(dispatch_queue_create("test.audio"), card.opener());
  int64_t lastShown = 0;
};

class NullAudioOutputTest : public AudioOutputTest {
 protected:
  NullAudioOutputTest() { card.plugged = false; }
};

TEST_F(NullAudioOutputTest, ItsClockRunsWithTheMachineFromZero) {
  EXPECT_EQ(output->clock()->nanosecondsAtHostTime(TimeSource::now()), 0);
  time.advance(1234 * kMillisecond);
  EXPECT_EQ(output->clock()->nanosecondsAtHostTime(TimeSource::now()), 1234 * kMillisecond);
}

TEST_F(NullAudioOutputTest, RendersNothingWhileNothingPlays) {
  const auto input = output->addInput(1000);
  time.advance(5000 * kMillisecond);
  EXPECT_EQ(output->renderedFrames(), 0);
  EXPECT_FALSE(output->rendering());
}

TEST_F(NullAudioOutputTest, RendersOnePeriodAheadOfTheClockWhileSomethingPlays) {
  time.advance(1000 * kMillisecond);
  const auto input = playConstant(0.5f);
  time.settle();
  EXPECT_EQ(output->renderedFrames(), 1020 * kFramesPerMillisecond);
  time.advance(19 * kMillisecond);
  EXPECT_EQ(output->renderedFrames(), 1020 * kFramesPerMillisecond);
  time.advance(1 * kMillisecond);
  EXPECT_EQ(output->renderedFrames(), 1040 * kFramesPerMillisecond);
  time.advance(980 * kMillisecond);
  EXPECT_EQ(output->renderedFrames(), 2020 * kFramesPerMillisecond);
}

TEST_F(NullAudioOutputTest, RestsSoonAfterTheLastSoundAndGoesOnWithTheClock) {
  const auto input = playConstant(0.5f);
  time.advance(500 * kMillisecond);
  input->stop();
  time.advance(500 * kMillisecond);
  EXPECT_FALSE(output->rendering());
  const int64_t rested = output->renderedFrames();
  EXPECT_LE(rested, 700 * kFramesPerMillisecond);
  time.advance(10'000 * kMillisecond);
  EXPECT_EQ(output->renderedFrames(), rested);
  input->restart(output->earliestStartFrame());
  time.settle();
  EXPECT_EQ(output->renderedFrames(), 11'020 * kFramesPerMillisecond);
}

TEST_F(NullAudioOutputTest, TheEarliestStartFrameIsStillReachable) {
  const auto input = output->addInput(48000);
  EXPECT_EQ(output->earliestStartFrame(), 40 * kFramesPerMillisecond);
  input->restart(output->earliestStartFrame());
  time.advance(100 * kMillisecond);
  EXPECT_GT(output->earliestStartFrame(), output->renderedFrames());
  EXPECT_LE(output->earliestStartFrame(), output->renderedFrames() + 40 * kFramesPerMillisecond);
}

TEST_F(NullAudioOutputTest, LooksForADeviceLessAndLessOftenWhileSomethingPlays) {
  const auto input = playConstant(0.5f);
  time.settle();
  EXPECT_EQ(card.attempts, 1);
  time.advance(520 * kMillisecond);
  EXPECT_EQ(card.attempts, 2);
  time.advance(1020 * kMillisecond);
  EXPECT_EQ(card.attempts, 3);
  time.advance(60'000 * kMillisecond);
  EXPECT_LE(card.attempts, 9);
  EXPECT_GE(card.attempts, 7);
}

TEST_F(NullAudioOutputTest, LooksForNoDeviceWhileNothingPlays) {
  const auto input = output->addInput(1000);
  time.advance(60'000 * kMillisecond);
  EXPECT_EQ(card.attempts, 1);
}

TEST_F(NullAudioOutputTest, AnInputThatIsDroppedWhileItPlaysIsLetGo) {
  auto input = playConstant(0.5f);
  time.advance(100 * kMillisecond);
  input.reset();
  time.advance(500 * kMillisecond);
  EXPECT_FALSE(output->rendering());
}

TEST_F(NullAudioOutputTest, InputsMayOutliveTheOutput) {
  const auto input = playConstant(0.5f);
  time.settle();
  output.reset();
  input->restart(0);
  EXPECT_EQ(input->write(constant(10, 0.5f)), 10);
}

TEST_F(AudioOutputTest, OpensTheDeviceAheadOfTheFirstSoundAndClosesItWhenNoneComes) {
  const auto input = output->addInput(1000);
  run(200);
  EXPECT_TRUE(output->onDevice());
  EXPECT_EQ(output->earliestStartFrame(), output->renderedFrames() + 20 * kFramesPerMillisecond);
  run(3500);
  EXPECT_FALSE(card.open());
  EXPECT_FALSE(output->rendering());
}

TEST_F(AudioOutputTest, TheDeviceTakesOverInPlaceWhatTheNullDeviceBegan) {
  const auto input = output->addInput(48000 * 60);
  const int64_t first = output->earliestStartFrame();
  input->restart(first);
  // A click each 100 ms, with the number of its place as its height.
  std::vector<float> clicks = constant(48000, 0.0f);
  for (int64_t i = 0; i < 10; ++i) {
    clicks[static_cast<size_t>(2 * i * 4800 + 9000)] = static_cast<float>(i + 1);
  }
  input->write(clicks);
  run(1000);
  ASSERT_TRUE(output->onDevice());
  const auto heard = card.heard();
  const int64_t end = nowFrame();
  int seen = 0;
  for (size_t i = 0; i < heard.size(); i += 2) {
    if (heard[i] <= 1.5f) continue;
    const int64_t heardAt = end - static_cast<int64_t>((heard.size() - i) / 2);
    const int64_t click = std::lround(heard[i]) - 1;
    EXPECT_NEAR(static_cast<double>(heardAt), static_cast<double>(first + click * 4800 + 4500), 48);
    ++seen;
  }
  EXPECT_GE(seen, 4);
}

TEST_F(AudioOutputTest, ADeviceThatVanishesIsFollowedWithoutAStallAndTakenUpAgain) {
  const auto input = playConstant(0.5f);
  run(1000);
  ASSERT_TRUE(output->onDevice());
  const int64_t before = output->renderedFrames();
  card.breakDown();
  time.settle();
  EXPECT_FALSE(output->onDevice());
  EXPECT_FALSE(card.open());
  run(2000);
  EXPECT_GE(output->renderedFrames(), before);
  EXPECT_EQ(output->renderedFrames(), nowFrame() / 960 * 960 + 960);
  card.plugged = true;
  run(5000);
  EXPECT_TRUE(output->onDevice());
  EXPECT_EQ(card.heard().back(), 0.5f);
}

TEST_F(AudioOutputTest, ADeviceThatAppearsWhilePlayingIsTakenUp) {
  card.plugged = false;
  const auto input = playConstant(0.5f);
  run(1000);
  EXPECT_FALSE(output->onDevice());
  card.plugged = true;
  run(2000);
  EXPECT_TRUE(output->onDevice());
  EXPECT_EQ(card.heard().back(), 0.5f);
}

TEST_F(AudioOutputTest, ADeviceThatStandsStillCountsAsLost) {
  const auto input = playConstant(0.5f);
  run(1000);
  ASSERT_TRUE(output->onDevice());
  time.advance(2500 * kMillisecond);
  EXPECT_FALSE(output->onDevice());
  EXPECT_GE(output->renderedFrames(), nowFrame());
}

TEST_F(AudioOutputTest, TheDeviceClosesSecondsAfterTheLastSoundAndOpensForTheNext) {
  const auto input = playConstant(0.5f);
  run(1000);
  input->stop();
  run(2500);
  EXPECT_TRUE(output->onDevice());
  run(1500);
  EXPECT_FALSE(card.open());
  EXPECT_FALSE(output->rendering());
  input->restart(output->earliestStartFrame());
  input->write(constant(48000, 0.25f));
  run(500);
  EXPECT_TRUE(output->onDevice());
  EXPECT_EQ(card.heard().back(), 0.25f);
}

TEST_F(AudioOutputTest, TheNullRouteClosesTheDeviceAndSoundGoesOnInSilence) {
  const auto input = playConstant(0.5f);
  run(1000);
  output->setRoute(AudioOutputEngine::Route::Null);
  time.settle();
  EXPECT_FALSE(card.open());
  run(1000);
  EXPECT_EQ(output->renderedFrames(), nowFrame() / 960 * 960 + 960);
  output->setRoute(AudioOutputEngine::Route::Device);
  run(500);
  EXPECT_TRUE(output->onDevice());
}

TEST_F(AudioOutputTest, ReopeningTheDeviceKeepsTheSoundGoing) {
  const auto input = playConstant(0.5f);
  run(1000);
  output->reopenDevice();
  time.settle();
  EXPECT_FALSE(output->onDevice());
  EXPECT_TRUE(output->rendering());
  run(500);
  EXPECT_TRUE(output->onDevice());
  EXPECT_EQ(card.attempts, 2);
}

TEST_F(AudioOutputTest, ItEndsWhileADevicePlays) {
  const auto input = playConstant(0.5f);
  run(1000);
  const std::weak_ptr<AudioOutputEngine> watch = output;
  output.reset();
  time.settle();
  EXPECT_TRUE(watch.expired());
  EXPECT_FALSE(card.open());
}

}  // namespace
}  // namespace zaffo::media
