// SPDX-License-Identifier: Apache-2.0
#include "platform/media/soundtrack/TimeStretch.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace zaffo::media {
namespace {

constexpr int kRate = 48000;

void addTone(std::vector<float>& samples, int64_t first, int64_t frames, double frequency) {
  for (int64_t i = 0; i < frames; ++i) {
    const double phase = 2 * std::numbers::pi * frequency * static_cast<double>(i) / kRate;
    const auto at = static_cast<size_t>(2 * (first + i));
    samples[at] += 0.5f * static_cast<float>(std::sin(phase));
    samples[at + 1] += 0.25f * static_cast<float>(std::sin(phase));
  }
}

std::vector<float> stretched(const std::vector<float>& input, double rate, size_t pieceFrames) {
  const auto stretch = TimeStretch::create(kRate, rate);
  std::vector<float> output;
  for (size_t at = 0; at < input.size(); at += 2 * pieceFrames) {
    const size_t size = std::min(2 * pieceFrames, input.size() - at);
    stretch->process(std::span(input).subspan(at, size), output);
  }
  stretch->finish(output);
  return output;
}

/// Of the left channel, by its upward crossings of zero, without the ends.
double frequencyOf(const std::vector<float>& samples) {
  int crossings = 0;
  size_t first = 0;
  size_t last = 0;
  for (size_t i = kRate / 5; i < samples.size() - kRate / 5; i += 2) {
    if (samples[i - 2] >= 0 || samples[i] < 0) continue;
    if (crossings++ == 0) first = i;
    last = i;
  }
  return (crossings - 1) / (static_cast<double>(last - first) / 2 / kRate);
}

class TimeStretchAtRate : public testing::TestWithParam<double> {};

TEST_P(TimeStretchAtRate, KeepsTheToneAndChangesTheLength) {
  std::vector<float> input(2 * 2 * kRate);
  addTone(input, 0, 2 * kRate, 440);
  const auto output = stretched(input, GetParam(), 960);
  EXPECT_NEAR(frequencyOf(output), 440, 4.4);
  const double frames = static_cast<double>(output.size()) / 2;
  EXPECT_NEAR(frames, 2 * kRate / GetParam(), 1);
}

TEST_P(TimeStretchAtRate, KeepsChannelsAndLevel) {
  std::vector<float> input(2 * 2 * kRate);
  addTone(input, 0, 2 * kRate, 1000);
  const auto output = stretched(input, GetParam(), 960);
  double left = 0;
  double right = 0;
  for (size_t i = kRate / 5; i < output.size() - kRate / 5; i += 2) {
    left += output[i] * output[i];
    right += output[i + 1] * output[i + 1];
  }
  EXPECT_NEAR(std::sqrt(right / left), 0.5, 0.01);
  const double frames = static_cast<double>(output.size() - 2 * kRate / 5) / 2;
  EXPECT_NEAR(std::sqrt(left / frames), 0.5 / std::numbers::sqrt2, 0.02);
}

TEST_P(TimeStretchAtRate, KeepsALowToneSteady) {
  std::vector<float> input(2 * 2 * kRate);
  addTone(input, 0, 2 * kRate, 80);
  const auto output = stretched(input, GetParam(), 960);
  constexpr size_t kWindow = 2 * kRate / 20;  // four cycles
  for (size_t at = kWindow; at + 2 * kWindow < output.size(); at += kWindow) {
    double energy = 0;
    for (size_t i = at; i < at + kWindow; i += 2) energy += output[i] * output[i];
    const double level = std::sqrt(2 * energy / kWindow);
    EXPECT_NEAR(level / (0.5 / std::numbers::sqrt2), 1, 0.2) << at / 2;
  }
}

TEST_P(TimeStretchAtRate, PutsEachSoundWhereItsTimeIs) {
  constexpr int64_t kBursts = 24;
  std::vector<float> input(2 * kBursts * 12000);
  for (int64_t i = 0; i < kBursts; ++i) addTone(input, 12000 * i + 5000 + 37 * i, 960, 1000);
  const auto output = stretched(input, GetParam(), 500);
  double sum = 0;
  for (int64_t i = 0; i < kBursts; ++i) {
    const double due = static_cast<double>(12000 * i + 5480 + 37 * i) / GetParam();
    const auto reach = static_cast<int64_t>(5000 / GetParam());
    double weight = 0;
    double moment = 0;
    for (int64_t n = std::lround(due) - reach; n < std::lround(due) + reach; ++n) {
      const float sample = output[static_cast<size_t>(2 * n)];
      weight += sample * sample;
      moment += sample * sample * static_cast<double>(n);
    }
    // Of the input.
    const double milliseconds = (moment / weight - due) * GetParam() * 1000 / kRate;
    EXPECT_NEAR(milliseconds, 0, 4) << "burst " << i;
    sum += milliseconds;
  }
  EXPECT_NEAR(sum / kBursts, 0, 2.5);
}

TEST_P(TimeStretchAtRate, GivesTheSameWhateverThePieces) {
  std::vector<float> input(2 * kRate);
  addTone(input, 0, kRate, 700);
  EXPECT_EQ(stretched(input, GetParam(), 1024), stretched(input, GetParam(), 1));
}

TEST_P(TimeStretchAtRate, KeepsNoMoreThanATenthOfASecondToItself) {
  const auto stretch = TimeStretch::create(kRate, GetParam());
  std::vector<float> input(2 * 480);
  std::vector<float> output;
  for (int i = 1; i <= 200; ++i) {
    stretch->process(input, output);
    const double kept = 480 * i / GetParam() - static_cast<double>(output.size()) / 2;
    ASSERT_LT(kept * GetParam(), kRate / 10);
  }
}

INSTANTIATE_TEST_SUITE_P(Rates, TimeStretchAtRate, testing::Values(0.5, 0.75, 1.25, 1.5, 2.0));

TEST(TimeStretch, LimitsItsRate) {
  std::vector<float> input(2 * kRate);
  EXPECT_EQ(stretched(input, 0.1, 960).size(), 2u * 2 * kRate);
  EXPECT_EQ(stretched(input, 10, 960).size(), 2u * kRate / 2);
  EXPECT_EQ(stretched(input, std::nan(""), 960).size(), 2u * kRate);
}

TEST(TimeStretch, GivesNothingForNothing) {
  EXPECT_TRUE(stretched({}, 1.5, 960).empty());
}

}  // namespace
}  // namespace zaffo::media
