// SPDX-License-Identifier: Apache-2.0
#include "platform/media/soundtrack/VolumeEnvelope.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zaffo::media {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::FloatNear;
using testing::Pointwise;

constexpr int kRate = 10;

VolumeRamp ramp(double from, double to, float start, float end) {
  const auto time = [](double frames) { return CMTimeMakeWithSeconds(frames / kRate, 1'000'000); };
  return {CMTimeRangeFromTimeToTime(time(from), time(to)), start, end};
}

/// The volumes of the left side from a frame on.
std::vector<float> volumes(const std::vector<VolumeRamp>& ramps, int64_t first, std::size_t count) {
  std::vector<float> samples(2 * count, 1);
  VolumeEnvelope(ramps, kRate).apply(first, samples);
  std::vector<float> left;
  for (std::size_t i = 0; i < samples.size(); i += 2) {
    EXPECT_EQ(samples[i], samples[i + 1]);
    left.push_back(samples[i]);
  }
  return left;
}

TEST(VolumeEnvelopeTest, IsFullVolumeWithoutRamps) {
  std::vector<float> samples(20, 0.5F);
  VolumeEnvelope().apply(-3, samples);
  EXPECT_THAT(samples, Each(0.5F));
}

TEST(VolumeEnvelopeTest, IsFullVolumeBeforeTheFirstRampAndTheLastValueAfterwards) {
  EXPECT_THAT(volumes({ramp(2, 6, 0, 0.8F)}, 0, 9),
              Pointwise(FloatNear(1e-6F), {1.0F, 1.0F, 0.0F, 0.2F, 0.4F, 0.6F, 0.8F, 0.8F, 0.8F}));
}

TEST(VolumeEnvelopeTest, AValueHoldsFromARampToTheNext) {
  EXPECT_THAT(volumes({ramp(0, 2, 1, 0.5F), ramp(4, 6, 0, 1)}, 0, 8),
              Pointwise(FloatNear(1e-6F), {1.0F, 0.75F, 0.5F, 0.5F, 0.0F, 0.5F, 1.0F, 1.0F}));
}

TEST(VolumeEnvelopeTest, ARampWithoutLengthSetsTheVolumeThere) {
  EXPECT_THAT(volumes({ramp(0, 0, 0.25F, 0.25F), ramp(3, 3, 0, 0.75F)}, -1, 6),
              ElementsAre(1, 0.25F, 0.25F, 0.25F, 0.75F, 0.75F));
}

TEST(VolumeEnvelopeTest, RampsBetweenFramesAreTakenAtTheFramesTimes) {
  EXPECT_THAT(volumes({ramp(0.5, 2.5, 0, 1)}, 0, 4),
              Pointwise(FloatNear(1e-5F), {1.0F, 0.25F, 0.75F, 1.0F}));
}

TEST(VolumeEnvelopeTest, ARampThatMissesAllFramesLeavesItsEnd) {
  EXPECT_THAT(volumes({ramp(1.2, 1.4, 1, 0.5F), ramp(1.6, 1.7, 0.5F, 0)}, 0, 4),
              ElementsAre(1, 1, 0, 0));
}

TEST(VolumeEnvelopeTest, PiecesOfARampFollowEachOtherWithoutAStep) {
  const std::vector<VolumeRamp> ramps = {ramp(3, 103, 0, 1), ramp(150, 170, 1, 0)};
  std::vector<float> whole(400, 1);
  const VolumeEnvelope envelope(ramps, kRate);
  envelope.apply(0, whole);
  std::vector<float> pieces(400, 1);
  for (std::size_t first = 0; first < 200; first += 7) {
    envelope.apply(static_cast<int64_t>(first),
                   std::span(pieces).subspan(2 * first, 2 * std::min<std::size_t>(7, 200 - first)));
  }
  EXPECT_THAT(pieces, Pointwise(FloatNear(1e-6F), whole));
}

}  // namespace
}  // namespace zaffo::media
