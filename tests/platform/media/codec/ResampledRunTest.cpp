// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/ResampledRun.h"

#include <gtest/gtest.h>

#include <cmath>

namespace zaffo::media {
namespace {

constexpr int kOutputRate = 48000;
constexpr double kTone = 997;

/// Mono float: a tone whose phase is 0 at the run's first sample.
FramePtr frameOfTone(int64_t firstSample, int count, int rate) {
  FramePtr frame(av_frame_alloc());
  frame->format = AV_SAMPLE_FMT_FLT;
  frame->sample_rate = rate;
  frame->nb_samples = count;
  av_channel_layout_default(&frame->ch_layout, 1);
  EXPECT_GE(av_frame_get_buffer(frame.get(), 0), 0);
  auto* samples = reinterpret_cast<float*>(frame->data[0]);
  for (int i = 0; i < count; ++i) {
    samples[i] = static_cast<float>(
        std::sin(2 * M_PI * kTone * static_cast<double>(firstSample + i) / rate));
  }
  return frame;
}

/// What a run from `position` on gives of 20 frames of 1024 samples, `part` of each being heard.
std::vector<AudioBlock> play(double position, int rate, const HeardPart& part) {
  ResampledRun run(kOutputRate);
  std::vector<AudioBlock> blocks;
  AudioBlock block;
  for (int i = 0; i < 20; ++i) {
    const FramePtr frame = frameOfTone(1024 * i, 1024, rate);
    if (i == 0) {
      EXPECT_EQ(run.begin(*frame, position), 0);
    }
    EXPECT_EQ(run.add(*frame, part, block), 0);
    if (block.frames() > 0) blocks.push_back(std::move(block));
  }
  EXPECT_EQ(run.finish(block), 0);
  if (block.frames() > 0) blocks.push_back(std::move(block));
  return blocks;
}

/// How far the tone stands behind its place, in output frames.
double delay(const std::vector<AudioBlock>& blocks, double position) {
  double real = 0, imaginary = 0;
  for (const AudioBlock& block : blocks) {
    for (int64_t i = 0; i < block.frames(); ++i) {
      const double angle =
          2 * M_PI * kTone * (static_cast<double>(block.firstFrame + i) - position) / kOutputRate;
      real += block.samples[static_cast<std::size_t>(2 * i)] * std::sin(angle);
      imaginary += block.samples[static_cast<std::size_t>(2 * i)] * std::cos(angle);
    }
  }
  return -std::atan2(imaginary, real) / (2 * M_PI * kTone) * kOutputRate;
}

constexpr HeardPart kWhole{.first = 0, .end = 1024};

TEST(ResampledRunTest, SoundStandsBetweenOutputFramesWhereItsRateLetsIt) {
  for (const double position : {0.0, 0.25, 0.5, 0.77, 1234.004, -500.4}) {
    EXPECT_NEAR(delay(play(position, 44100, kWhole), position), 0, 0.5 / 147 + 2e-3) << position;
    EXPECT_NEAR(delay(play(position, 22050, kWhole), position), 0, 0.5 / 147 + 2e-3) << position;
    EXPECT_NEAR(delay(play(position, 32000, kWhole), position), 0, 0.25 + 2e-3) << position;
  }
}

TEST(ResampledRunTest, AtTheOutputsRateSamplesMoveToTheNearestFrameUnchanged) {
  for (const double position : {0.0, 0.4, -0.4, 7.0}) {
    const auto blocks = play(position, kOutputRate, kWhole);
    EXPECT_EQ(blocks.front().firstFrame, std::llround(position));
    const FramePtr first = frameOfTone(0, 1024, kOutputRate);
    const auto* source = reinterpret_cast<const float*>(first->data[0]);
    for (int i = 0; i < 1024; ++i) {
      ASSERT_EQ(blocks.front().samples[static_cast<std::size_t>(2 * i)], source[i]);
    }
  }
}

TEST(ResampledRunTest, GivesTheFramesThatAreHeardAndNoOther) {
  for (const int rate : {44100, 48000}) {
    const auto blocks = play(100.3, rate, {.first = 0, .end = 1024, .from = 3001, .until = 12345});
    EXPECT_EQ(blocks.front().firstFrame, 3001);
    for (std::size_t i = 1; i < blocks.size(); ++i) {
      EXPECT_EQ(blocks[i].firstFrame, blocks[i - 1].end());
    }
    EXPECT_EQ(blocks.back().end(), 12345);
  }
}

TEST(ResampledRunTest, WhatIsHeardIsTheSameWhateverIsCutAwayAroundIt) {
  const auto whole = play(0.6, 44100, kWhole);
  const auto part = play(0.6, 44100, {.first = 0, .end = 1024, .from = 4000, .until = 9000});
  std::vector<float> all;
  for (const AudioBlock& block : whole)
    all.insert(all.end(), block.samples.begin(), block.samples.end());
  for (const AudioBlock& block : part) {
    for (std::size_t i = 0; i < block.samples.size(); ++i) {
      const auto at =
          static_cast<std::size_t>(2 * (block.firstFrame - whole.front().firstFrame)) + i;
      ASSERT_EQ(block.samples[i], all.at(at));
    }
  }
}

TEST(ResampledRunTest, WhatIsNotHeardBetweenPartsThatAreIsSilent) {
  ResampledRun run(kOutputRate);
  AudioBlock block;
  const FramePtr frame = frameOfTone(100, 1024, kOutputRate);
  ASSERT_EQ(run.begin(*frame, 0), 0);
  ASSERT_EQ(run.add(*frame, {.first = 0, .end = 600}, block), 0);
  EXPECT_EQ(block.frames(), 600);
  ASSERT_EQ(run.add(*frame, {.first = 300, .end = 1024}, block), 0);
  EXPECT_EQ(block.firstFrame, 1024 + 300);
  EXPECT_EQ(block.frames(), 1024 - 300);
}

}  // namespace
}  // namespace zaffo::media
