// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>

#include "doubles/ScriptedAsset.h"
#include "doubles/ScriptedComposition.h"
#include "loading/ZFZaffoLoopingComposition.h"

namespace zaffo {
namespace {

constexpr int kRounds = 200;
constexpr double kNanosecond = 1e-9;  // a sum of times is rounded to less where scales do not fit
constexpr int kVideo = 1, kTrackA = 2, kTrackB = 3;

/// floor(162.5 s / duration) within 25 and 50, in whole numbers.
int64_t seamsOf(CMTime duration) {
  return std::clamp(int64_t{325} * duration.timescale / (2 * duration.value), int64_t{25},
                    int64_t{50});
}

/// Whether the quotient above is whole, so that a rounding of it may fall to either side.
bool isAtBoundary(CMTime duration) {
  return int64_t{325} * duration.timescale % (2 * duration.value) == 0;
}

/// A clip of a random length, and the loop made of it.
class RandomClip {
 public:
  explicit RandomClip(std::mt19937& random) {
    constexpr CMTimeScale kScales[] = {24, 600, 1000, 12800, 30000, 44100, 90000, 1'000'000'000};
    const CMTimeScale scale =
        kScales[std::uniform_int_distribution<std::size_t>(0, std::size(kScales) - 1)(random)];
    // As many short ones as long ones, from 0.2 s to a minute and a half.
    const double seconds = 0.2 * std::pow(450, std::uniform_real_distribution<>(0, 1)(random));
    asset.durationValue = CMTimeMakeWithSeconds(seconds, scale);
    asset.durationValue.flags = kCMTimeFlags_Valid;
    asset.trackList.push_back(ScriptedAsset::track(AVMediaTypeAudio));
    isBuilt = builder.createAudioCrossFadeLoopingComposition(composition, *mix, asset);
  }

  [[nodiscard]] double seconds() const { return CMTimeGetSeconds(asset.durationValue); }
  [[nodiscard]] std::vector<CompositionCall> insertions(int trackID) const {
    std::vector<CompositionCall> found;
    std::ranges::copy_if(composition.calls, std::back_inserter(found), [=](const auto& call) {
      return call.kind == CompositionCall::Kind::Insert && call.trackID == trackID;
    });
    return found;
  }

  ScriptedAsset asset;
  ScriptedComposition composition;
  const std::shared_ptr<AVMutableAudioMix> mix = AVMutableAudioMix::audioMix();
  ZFZaffoLoopingComposition builder;
  bool isBuilt = false;
};

/// Runs `check` on random clips; tells the seed and the length when one fails.
template <typename Check>
void forRandomClips(Check check) {
  const auto seed = std::random_device{}();
  std::mt19937 random(seed);
  for (int round = 0; round < kRounds && !testing::Test::HasFailure(); ++round) {
    const RandomClip clip(random);
    SCOPED_TRACE("seed " + std::to_string(seed) + ", round " + std::to_string(round) + ", " +
                 CMTimeDescription(clip.asset.durationValue));
    ASSERT_TRUE(clip.isBuilt);
    check(clip);
  }
}

TEST(LoopingCompositionPropertyTest, TheCopiesOfThePictureLieEndToEndAsOftenAsTheLengthAllows) {
  forRandomClips([](const RandomClip& clip) {
    const auto copies = clip.insertions(kVideo);
    const auto seams = static_cast<int64_t>(copies.size()) - 1;
    if (isAtBoundary(clip.asset.durationValue)) {
      EXPECT_NEAR(static_cast<double>(seams),
                  static_cast<double>(seamsOf(clip.asset.durationValue)), 1);
    } else {
      EXPECT_EQ(seams, seamsOf(clip.asset.durationValue));
    }
    const double length = CMTimeGetSeconds(clip.builder.videoLength());
    EXPECT_NEAR(length, clip.seconds() - 0.1, kNanosecond);
    for (std::size_t i = 0; i < copies.size(); ++i) {
      EXPECT_EQ(CMTimeGetSeconds(copies[i].range.start), 0.05);
      EXPECT_EQ(copies[i].range.duration, clip.builder.videoLength());
      EXPECT_NEAR(CMTimeGetSeconds(copies[i].startTime), static_cast<double>(i) * length,
                  static_cast<double>(copies.size()) * kNanosecond);
    }
  });
}

TEST(LoopingCompositionPropertyTest, TheSoundOverlapsByTheTrimOnAlternatingTracks) {
  forRandomClips([](const RandomClip& clip) {
    const auto pictures = clip.insertions(kVideo);
    const auto soundsA = clip.insertions(kTrackA);
    const auto soundsB = clip.insertions(kTrackB);
    ASSERT_EQ(soundsA.size() + soundsB.size(), pictures.size());
    for (std::size_t i = 0; i < pictures.size(); ++i) {
      const auto& sound = i % 2 == 0 ? soundsA[i / 2] : soundsB[i / 2];
      EXPECT_EQ(sound.startTime, pictures[i].startTime);
      EXPECT_EQ(CMTimeGetSeconds(sound.range.start), 0.05);
      EXPECT_NEAR(CMTimeGetSeconds(sound.range.duration),
                  CMTimeGetSeconds(pictures[i].range.duration) + 0.05, 2 * kNanosecond);
    }
  });
}

/// How loud a track is at a time.
double volumeAt(const std::vector<AVVolumeRamp>& ramps, double seconds) {
  double volume = 1;
  for (const auto& ramp : ramps) {
    const double start = CMTimeGetSeconds(ramp.range.start);
    const double length = CMTimeGetSeconds(ramp.range.duration);
    if (seconds < start) break;
    const double share = length > 0 ? std::min((seconds - start) / length, 1.0) : 1.0;
    volume = ramp.start + (ramp.end - ramp.start) * share;
  }
  return volume;
}

TEST(LoopingCompositionPropertyTest, TheVolumesOfBothTracksAddUpToOneAfterTheFadeIn) {
  forRandomClips([](const RandomClip& clip) {
    const auto& parameters = clip.mix->inputParameters();
    ASSERT_EQ(parameters.size(), 2u);
    const auto seams = clip.insertions(kVideo);
    for (std::size_t i = 1; i < seams.size(); ++i) {
      const double seam = CMTimeGetSeconds(seams[i].startTime);
      for (const double offset : {0.001, 0.0125, 0.025, 0.049, 0.06}) {
        const double a = volumeAt(parameters[0]->volumeRamps(), seam + offset);
        const double b = volumeAt(parameters[1]->volumeRamps(), seam + offset);
        EXPECT_NEAR(a + b, 1, 1e-5);
        const double rising = i % 2 == 0 ? a : b;
        EXPECT_NEAR(rising, std::min(offset / 0.05, 1.0), 1e-5);
      }
    }
  });
}

TEST(LoopingCompositionPropertyTest, TheFadeInLastsToTheFirstSeamOrTwoSeconds) {
  forRandomClips([](const RandomClip& clip) {
    const auto ramp = clip.mix->inputParameters().at(0)->volumeRamps().at(0);
    const double unit = 1.0 / clip.asset.durationValue.timescale;
    EXPECT_EQ(ramp.start, 0);
    EXPECT_EQ(CMTimeGetSeconds(ramp.range.start), 0);
    EXPECT_NEAR(CMTimeGetSeconds(ramp.range.duration), std::min(clip.seconds() - 0.1, 2.0),
                unit / 2 + kNanosecond);
  });
}

}  // namespace
}  // namespace zaffo
