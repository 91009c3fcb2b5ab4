// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/AudioMixer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>
#include <vector>

namespace zaffo::media {
namespace {

constexpr int64_t kBlock = 480;

std::vector<float> constant(int64_t frames, float left, float right) {
  std::vector<float> samples;
  for (int64_t i = 0; i < frames; ++i) samples.insert(samples.end(), {left, right});
  return samples;
}

/// A mix that is rendered block by block into one long record.
class AudioMixerTest : public testing::Test {
 protected:
  void render(int64_t frames) {
    while (frames > 0) {
      const int64_t count = std::min(frames, kBlock);
      renderAt(mixer.nextFrame(), count);
      frames -= count;
    }
  }

  void renderAt(int64_t first, int64_t count) {
    std::vector<float> block(static_cast<size_t>(2 * count), 9.0f);
    mixer.gate().passTo(1);
    ASSERT_TRUE(mixer.gate().tryEnter(1));
    mixer.render(first, block);
    mixer.gate().leave();
    heard.insert(heard.end(), block.begin(), block.end());
  }

  float left(int64_t frame) const { return heard[static_cast<size_t>(2 * frame)]; }
  float right(int64_t frame) const { return heard[static_cast<size_t>(2 * frame + 1)]; }

  /// The largest difference between neighbouring samples of the left channel.
  float largestStep() const {
    float largest = std::abs(heard[0]);
    for (size_t i = 2; i < heard.size(); i += 2) {
      largest = std::max(largest, std::abs(heard[i] - heard[i - 2]));
    }
    return largest;
  }

  AudioMixer mixer;
  std::vector<float> heard;
};

TEST_F(AudioMixerTest, IsSilentWithoutInputs) {
  render(1000);
  EXPECT_EQ(heard, std::vector<float>(2000, 0.0f));
  EXPECT_EQ(mixer.nextFrame(), 1000);
}

TEST_F(AudioMixerTest, MixesAFrameAtTheOutputFrameItWasWrittenFor) {
  const auto input = mixer.add(8192);
  input->restart(700);
  std::vector<float> samples = constant(2000, 0.0f, 0.0f);
  samples[2 * 1000] = 0.75f;
  samples[2 * 1000 + 1] = -0.5f;
  ASSERT_EQ(input->write(samples), 2000);
  EXPECT_EQ(input->nextOutputFrame(), 2700);
  render(3000);
  for (int64_t frame = 0; frame < 3000; ++frame) {
    EXPECT_EQ(left(frame), frame == 1700 ? 0.75f : 0.0f) << frame;
    EXPECT_EQ(right(frame), frame == 1700 ? -0.5f : 0.0f) << frame;
  }
}

TEST_F(AudioMixerTest, SumsItsInputsExactlyAndWithoutALimit) {
  std::vector<std::shared_ptr<InputChannel>> inputs;
  for (int i = 0; i < 4; ++i) {
    inputs.push_back(mixer.add(4096));
    inputs.back()->restart(0);
    inputs.back()->write(constant(2000, 0.5f, 0.125f * static_cast<float>(i)));
  }
  render(2000);
  for (int64_t frame = kFadeFrames; frame < 2000; ++frame) {
    ASSERT_EQ(left(frame), 2.0f) << frame;
    ASSERT_EQ(right(frame), 0.75f) << frame;
  }
}

TEST_F(AudioMixerTest, RisesFromSilenceAtAStartInMidWaveform) {
  const auto input = mixer.add(4096);
  input->restart(100);
  input->write(constant(2000, 1.0f, 1.0f));
  render(1000);
  EXPECT_EQ(left(99), 0.0f);
  EXPECT_LE(largestStep(), 1.01f / kFadeFrames);
  EXPECT_EQ(left(100 + kFadeFrames), 1.0f);
}

TEST_F(AudioMixerTest, RunsDownToSilenceOnStop) {
  const auto input = mixer.add(8192);
  input->restart(0);
  input->write(constant(5000, 1.0f, 1.0f));
  render(960);
  input->stop();
  render(960);
  EXPECT_LE(largestStep(), 1.01f / kFadeFrames);
  EXPECT_GT(left(970), 0.9f);
  EXPECT_EQ(left(960 + kFadeFrames), 0.0f);
  EXPECT_TRUE(input->silent());
}

TEST_F(AudioMixerTest, ARestartEndsAStopAndFadesOver) {
  const auto input = mixer.add(8192);
  input->restart(0);
  input->write(constant(5000, 1.0f, 1.0f));
  render(960);
  input->stop();
  input->restart(960);
  EXPECT_EQ(input->nextOutputFrame(), 960);
  input->write(constant(2000, 1.0f, 1.0f));
  render(960);
  EXPECT_LE(largestStep(), 1.01f / kFadeFrames);
  for (int64_t frame = 960; frame < 1920; ++frame) ASSERT_NEAR(left(frame), 1.0f, 0.01f) << frame;
}

TEST_F(AudioMixerTest, IsSilentWhereNothingWasWrittenAndInPlaceAgainAfterwards) {
  const auto input = mixer.add(8192);
  input->restart(0);
  input->write(constant(1000, 1.0f, 1.0f));
  render(1920);
  EXPECT_EQ(left(999), 1.0f);
  EXPECT_EQ(left(1000 + kFadeFrames), 0.0f);
  std::vector<float> late = constant(2000, 0.0f, 0.0f);
  for (int64_t frame = 1000; frame < 3000; ++frame) {
    late[static_cast<size_t>(2 * (frame - 1000))] = static_cast<float>(frame) / 4096.0f;
  }
  EXPECT_EQ(input->write(late), 2000);
  EXPECT_EQ(input->nextOutputFrame(), 3000);
  render(1080);
  EXPECT_LE(largestStep(), 1.1f / kFadeFrames);
  for (int64_t frame = 1920 + kFadeFrames; frame < 3000; ++frame) {
    ASSERT_EQ(left(frame), static_cast<float>(frame) / 4096.0f) << frame;
  }
}

TEST_F(AudioMixerTest, RampsTheVolumeWithinTenMilliseconds) {
  const auto input = mixer.add(8192);
  input->restart(0);
  input->write(constant(5000, 1.0f, 1.0f));
  render(960);
  input->setVolume(0.25f);
  render(960);
  EXPECT_LE(largestStep(), 1.01f / kFadeFrames);
  EXPECT_GT(left(961), 0.9f);
  EXPECT_EQ(left(960 + kVolumeRampFrames), 0.25f);
}

TEST_F(AudioMixerTest, TakesAVolumeSetInSilenceAtOnce) {
  const auto input = mixer.add(8192);
  input->setVolume(0.0f);
  input->restart(0);
  input->write(constant(2000, 1.0f, 1.0f));
  render(960);
  EXPECT_EQ(heard, std::vector<float>(1920, 0.0f));
}

TEST_F(AudioMixerTest, LimitsTheVolume) {
  const auto input = mixer.add(8192);
  input->restart(0);
  input->write(constant(6000, 1.0f, 1.0f));
  input->setVolume(3.0f);
  render(960);
  EXPECT_EQ(left(959), 1.0f);
  input->setVolume(std::nanf(""));
  render(960);
  EXPECT_EQ(left(1919), 0.0f);
}

TEST_F(AudioMixerTest, SkipsFramesWithoutAClick) {
  const auto input = mixer.add(8192);
  input->restart(0);
  input->write(constant(8000, 1.0f, 1.0f));
  render(960);
  renderAt(3000, 960);
  EXPECT_EQ(mixer.nextFrame(), 3960);
  EXPECT_LE(largestStep(), 1.01f / kFadeFrames);
}

TEST_F(AudioMixerTest, RendersNoFrameTwiceButWaitsInSilence) {
  const auto input = mixer.add(8192);
  std::vector<float> samples = constant(4000, 0.0f, 0.0f);
  samples[2 * 1500] = 1.0f;
  input->restart(0);
  input->write(samples);
  render(960);
  renderAt(660, 960);
  EXPECT_EQ(mixer.nextFrame(), 1620);
  EXPECT_EQ(left(960 + 300 + (1500 - 960)), 1.0f);
}

TEST_F(AudioMixerTest, ARemovedInputFadesOutAndIsThenLetGo) {
  auto input = mixer.add(8192);
  const std::weak_ptr<InputChannel> watch = input;
  input->restart(0);
  input->write(constant(5000, 1.0f, 1.0f));
  render(960);
  mixer.remove(input);
  input.reset();
  EXPECT_TRUE(mixer.sweep());
  EXPECT_FALSE(watch.expired());
  render(960);
  EXPECT_LE(largestStep(), 1.01f / kFadeFrames);
  EXPECT_FALSE(mixer.sweep());
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(mixer.inputCount(), 0u);
}

TEST_F(AudioMixerTest, InputsComeAndGoWhileItRenders) {
  std::atomic<bool> done{false};
  mixer.gate().passTo(1);
  std::thread callback([&] {
    std::vector<float> block(512);
    while (!done.load()) {
      if (!mixer.gate().tryEnter(1)) continue;
      mixer.render(mixer.nextFrame(), block);
      mixer.gate().leave();
    }
  });
  const auto samples = constant(256, 0.25f, 0.25f);
  for (int i = 0; i < 1000; ++i) {
    const auto input = mixer.add(512);
    input->restart(mixer.nextFrame());
    input->write(samples);
    if (i % 3 == 0) input->restart(mixer.nextFrame() + 100);
    input->write(samples);
    input->setVolume(0.5f);
    mixer.remove(input);
    mixer.sweep();
  }
  while (mixer.sweep()) std::this_thread::yield();
  done.store(true);
  callback.join();
  EXPECT_EQ(mixer.inputCount(), 0u);
}

}  // namespace
}  // namespace zaffo::media
