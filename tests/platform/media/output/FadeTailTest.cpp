// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/FadeTail.h"

#include <gtest/gtest.h>

#include <vector>

namespace zaffo::media {
namespace {

/// Cuts off a constant in mid waveform.
void cutOff(FadeTail& tail, float left, float right) {
  for (int i = 0; i < kFadeFrames; ++i) tail.add(i, left, right);
}

std::vector<float> play(FadeTail& tail, int frames) {
  std::vector<float> out(static_cast<size_t>(2 * frames), 0.0f);
  tail.mix(out);
  return out;
}

TEST(FadeTail, IsSilentUntilSomethingWasCutOff) {
  FadeTail tail;
  EXPECT_FALSE(tail.sounding());
  EXPECT_EQ(play(tail, 300), std::vector<float>(600, 0.0f));
}

TEST(FadeTail, RunsDownInEvenStepsToSilence) {
  FadeTail tail;
  cutOff(tail, 1.0f, -0.5f);
  const std::vector<float> out = play(tail, kFadeFrames + 1);
  float before = 1.0f;
  for (size_t i = 0; i <= kFadeFrames; ++i) {
    ASSERT_NEAR(before - out[2 * i], 1.0f / (kFadeFrames + 1), 1e-5f) << i;
    ASSERT_NEAR(out[2 * i + 1], -0.5f * out[2 * i], 1e-6f) << i;
    before = out[2 * i];
  }
  EXPECT_EQ(out[2 * kFadeFrames], 0.0f);
}

TEST(FadeTail, AddsToWhatIsThere) {
  FadeTail tail;
  tail.add(0, 1.0f, 1.0f);
  std::vector<float> out{0.25f, -2.0f};
  tail.mix(out);
  EXPECT_NEAR(out[0], 1.25f, 0.01f);
  EXPECT_NEAR(out[1], -1.0f, 0.01f);
}

TEST(FadeTail, SoundsUntilItsLastFrameWasPlayed) {
  FadeTail tail;
  cutOff(tail, 1.0f, 1.0f);
  (void)play(tail, kFadeFrames - 1);
  EXPECT_TRUE(tail.sounding());
  (void)play(tail, 1);
  EXPECT_FALSE(tail.sounding());
}

TEST(FadeTail, IsTheSameInBlocksOfAnyLength) {
  FadeTail inOne, inMany;
  cutOff(inOne, 0.75f, 0.5f);
  cutOff(inMany, 0.75f, 0.5f);
  const std::vector<float> expected = play(inOne, 300);
  std::vector<float> out;
  for (int frames = 1; out.size() < expected.size(); frames = frames % 17 + 1) {
    const std::vector<float> block = play(inMany, frames);
    out.insert(out.end(), block.begin(), block.end());
  }
  out.resize(expected.size());
  EXPECT_EQ(out, expected);
}

TEST(FadeTail, ASecondCutFadesBesideTheFirstFromThePresentOn) {
  constexpr int kBetween = 100;
  FadeTail both, first, second;
  cutOff(both, 1.0f, 1.0f);
  cutOff(first, 1.0f, 1.0f);
  (void)play(both, kBetween);
  (void)play(first, kBetween);
  cutOff(both, 0.25f, 0.5f);
  cutOff(second, 0.25f, 0.5f);
  const std::vector<float> out = play(both, 300);
  const std::vector<float> a = play(first, 300), b = play(second, 300);
  for (size_t i = 0; i < out.size(); ++i) ASSERT_NEAR(out[i], a[i] + b[i], 1e-6f) << i;
}

TEST(FadeTail, WhatHasSoundedDoesNotSoundAgain) {
  FadeTail tail;
  cutOff(tail, 1.0f, 1.0f);
  (void)play(tail, kFadeFrames);
  tail.add(3, 1.0f, 1.0f);
  const std::vector<float> out = play(tail, kFadeFrames);
  for (size_t i = 0; i < kFadeFrames; ++i) ASSERT_EQ(out[2 * i] != 0.0f, i == 3) << i;
}

TEST(FadeTail, IgnoresFramesOutsideOfTheFade) {
  FadeTail tail;
  tail.add(-1, 1.0f, 1.0f);
  tail.add(kFadeFrames, 1.0f, 1.0f);
  EXPECT_FALSE(tail.sounding());
}

}  // namespace
}  // namespace zaffo::media
