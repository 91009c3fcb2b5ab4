// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/Resampler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace zaffo::media {
namespace {

constexpr int kRate = 48000;

/// `count` samples of planar float, each channel at an even level.
FramePtr evenFrame(const std::vector<float>& levels, int rate, int count) {
  FramePtr frame(av_frame_alloc());
  frame->format = AV_SAMPLE_FMT_FLTP;
  frame->sample_rate = rate;
  frame->nb_samples = count;
  av_channel_layout_default(&frame->ch_layout, static_cast<int>(levels.size()));
  EXPECT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
  for (std::size_t channel = 0; channel < levels.size(); ++channel) {
    auto* const samples = reinterpret_cast<float*>(frame->extended_data[channel]);
    std::fill_n(samples, count, levels[channel]);
  }
  return frame;
}

std::vector<float> convertAll(Resampler& resampler, const AVFrame& frame) {
  std::vector<float> output, rest;
  EXPECT_EQ(resampler.prepare(frame), 0);
  EXPECT_EQ(resampler.convert(frame, output), 0);
  EXPECT_EQ(resampler.finish(rest), 0);
  output.insert(output.end(), rest.begin(), rest.end());
  return output;
}

TEST(Resampler, SoundAtTheOutputsRateIsHandedOnAsItIs) {
  Resampler resampler(kRate);
  const std::vector<float> output = convertAll(resampler, *evenFrame({0.5f, -0.25f}, kRate, 1000));
  ASSERT_EQ(output.size(), 2000u);
  for (std::size_t i = 0; i < output.size(); i += 2) {
    ASSERT_EQ(output[i], 0.5f);
    ASSERT_EQ(output[i + 1], -0.25f);
  }
}

TEST(Resampler, MonoGoesToBothSidesAtFullLevel) {
  Resampler resampler(kRate);
  const std::vector<float> output = convertAll(resampler, *evenFrame({0.75f}, kRate, 100));
  EXPECT_EQ(output, std::vector<float>(200, 0.75f));
}

TEST(Resampler, NoMixOfFullChannelsClips) {
  for (const std::size_t channels : {3u, 4u, 6u, 8u}) {
    Resampler resampler(kRate);
    const std::vector<float> output =
        convertAll(resampler, *evenFrame(std::vector<float>(channels, 1.0f), kRate, 100));
    ASSERT_FALSE(output.empty());
    EXPECT_LE(*std::ranges::max_element(output), 1.0001f) << channels;
    EXPECT_GT(*std::ranges::max_element(output), 0.5f) << channels;
  }
}

TEST(Resampler, AnotherRateGivesTheSameLengthInTime) {
  Resampler resampler(kRate);
  const std::vector<float> output = convertAll(resampler, *evenFrame({0.5f, 0.5f}, 24000, 2400));
  EXPECT_NEAR(static_cast<double>(output.size() / 2), 4800, 2);
  EXPECT_NEAR(output[output.size() / 2], 0.5f, 0.001f);
}

TEST(Resampler, KnowsWhatItIsSetUpFor) {
  Resampler resampler(kRate);
  const FramePtr frame = evenFrame({0, 0}, 44100, 10);
  EXPECT_FALSE(resampler.fits(*frame));
  ASSERT_EQ(resampler.prepare(*frame), 0);
  EXPECT_TRUE(resampler.fits(*frame));
  EXPECT_FALSE(resampler.fits(*evenFrame({0}, 44100, 10)));
  EXPECT_FALSE(resampler.fits(*evenFrame({0, 0}, 22050, 10)));
  frame->format = AV_SAMPLE_FMT_S16P;
  EXPECT_FALSE(resampler.fits(*frame));
}

TEST(Resampler, HasToBeSetUpAgainOnceItWasFinished) {
  Resampler resampler(kRate);
  const FramePtr frame = evenFrame({0.5f, 0.5f}, kRate, 10);
  (void)convertAll(resampler, *frame);
  EXPECT_FALSE(resampler.fits(*frame));
  std::vector<float> rest{1.0f};
  EXPECT_EQ(resampler.finish(rest), 0);
  EXPECT_TRUE(rest.empty());
}

TEST(Resampler, SilenceComesBeforeWhatIsConvertedNext) {
  Resampler resampler(kRate);
  const FramePtr frame = evenFrame({0.5f, 0.5f}, kRate, 10);
  ASSERT_EQ(resampler.prepare(*frame), 0);
  ASSERT_GE(resampler.injectSilence(4), 0);
  std::vector<float> output;
  ASSERT_EQ(resampler.convert(*frame, output), 0);
  ASSERT_GE(output.size(), 2u * 5);
  for (std::size_t i = 0; i < output.size(); ++i) ASSERT_EQ(output[i], i < 8 ? 0.0f : 0.5f) << i;
}

}  // namespace
}  // namespace zaffo::media
