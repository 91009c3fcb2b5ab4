// SPDX-License-Identifier: Apache-2.0

// What is heard while a loop plays over ten seams.

#include <ostream>

#include "loading/LoopSound.h"
#include "loading/LoopSoundFixture.h"

namespace zaffo {
namespace {

constexpr int kSeams = 10;
constexpr std::size_t kStartFade = 240;  // frames in which the output itself fades in

class LoopSoundTest : public LoopSoundFixture {
 protected:
  std::vector<float> expected(const ExpectedSound& sound, std::size_t frames) const {
    std::vector<float> samples(frames);
    for (std::size_t i = 0; i < frames; ++i)
      samples[i] = static_cast<float>(sound.at(static_cast<double>(i) / kRate));
    return samples;
  }
};

/// A clip by the end of its name, and where its sound lies on its own time line.
struct Source {
  const char* name;
  int delay = 0;      // frames of encoder delay that the file does not tell of
  int tolerance = 0;  // frames by which it may be off besides: times are whole milliseconds there
  friend std::ostream& operator<<(std::ostream& out, const Source& s) { return out << s.name; }
};

std::string nameOf(const testing::TestParamInfo<Source>& source) {
  std::string name = source.param.name;
  for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  return name;
}
const auto kSources = testing::Values(Source{"aac.mp4"}, Source{"aac_44100.mp4"}, Source{"mp3.mp4"},
                                      Source{"mp3.mkv", 1105, 48}, Source{"opus.mp4"},
                                      Source{"opus.mkv", 0, 48}, Source{"pcm.mov"});

class LoopToneTest : public LoopSoundTest, public testing::WithParamInterface<Source> {
 protected:
  /// What should be heard; how the source lies within its tolerance is told by the first round.
  std::vector<float> wantedFor(const std::vector<float>& heard) const {
    std::vector<float> best;
    double least = 1e9;
    const auto& source = GetParam();
    for (int off = -source.tolerance; off <= source.tolerance; ++off) {
      const double delay = (source.delay + off) / kRate;
      const auto tone = [delay](double seconds) { return LoopTone::at(seconds - delay); };
      auto wanted = expected({tone, loopSeconds, 0}, heard.size());
      double error = 0;
      for (auto i = frameAt(0.3); i < frameAt(0.4); ++i) error += std::pow(heard[i] - wanted[i], 2);
      if (error < least) best = std::move(wanted), least = error;
    }
    return best;
  }
  /// In windows of 10 ms within which the tone may be compared.
  void expectLevels(const std::vector<float>& heard, const std::vector<float>& wanted,
                    std::size_t from, std::size_t to) {
    constexpr std::size_t kWindow = 480;
    for (std::size_t at = from; at + kWindow <= to; at += kWindow / 2) {
      const double level1 = level(heard, at, kWindow), level2 = level(wanted, at, kWindow);
      if (level2 < 0.05) continue;  // the phases of the two copies cancel out
      EXPECT_LE(std::abs(decibels(level1, level2)), 0.5)
          << "at " << static_cast<double>(at) / kRate << " s";
    }
  }
};

TEST_P(LoopToneTest, HasNoStepAndNoDipOverTenSeams) {
  const auto heard = record(std::string("loop_tone_") + GetParam().name, kSeams + 0.5);
  ASSERT_GE(heard.size(), frameAt(kSeams * loopSeconds));
  const auto wanted = wantedFor(heard);
  const double largest = LoopTone::kAmplitude * 2 * std::numbers::pi * LoopTone::kFrequency / kRate;
  // A ramp adds the slope of its own; a codec does what it does.
  const double slack = std::string("pcm.mov") == GetParam().name ? 1.02 : 1.1;
  const auto end = frameAt((kSeams + 0.4) * loopSeconds);
  for (std::size_t i = kStartFade; i < end; ++i)
    ASSERT_LE(std::abs(heard[i] - heard[i - 1]), slack * largest)
        << "at " << static_cast<double>(i) / kRate << " s";
  expectLevels(heard, wanted, kStartFade, end);
}

TEST_P(LoopToneTest, IsTheVerySumThatTheRampsMake) {
  const auto heard = record(std::string("loop_tone_") + GetParam().name, kSeams + 0.5);
  ASSERT_GE(heard.size(), frameAt(kSeams * loopSeconds));
  const auto wanted = wantedFor(heard);
  for (int seam = 1; seam <= kSeams; ++seam) {
    const auto from = frameAt(seam * loopSeconds - 0.05), to = frameAt(seam * loopSeconds + 0.1);
    double error = 0;
    for (auto i = from; i < to; ++i) error += std::pow(heard[i] - wanted[i], 2);
    // A frame too many would be 0.058 of the tone.
    EXPECT_LE(std::sqrt(error / static_cast<double>(to - from)),
              0.04 * LoopTone::kAmplitude / std::numbers::sqrt2)
        << "seam " << seam;
  }
}

INSTANTIATE_TEST_SUITE_P(Sources, LoopToneTest, kSources, nameOf);

class LoopClickTest : public LoopSoundTest, public testing::WithParamInterface<Source> {
 protected:
  /// The clip's click, by seconds from its middle.
  static double click(double seconds) {
    return 0.8 * std::cos(2 * std::numbers::pi * 1000 * seconds) *
           std::exp(-std::pow(seconds / 0.0006, 2));
  }
  /// Where the click nearest to a time stands, in frames from there.
  static int offsetOfClick(const std::vector<float>& heard, double seconds) {
    constexpr int kReach = 96, kHalf = 120;
    const double middle = seconds * kRate;
    const auto whole = static_cast<int>(std::llround(middle));
    int best = 0;
    double most = -1e9;
    for (int offset = -kReach; offset <= kReach; ++offset) {
      double product = 0;
      for (int i = -kHalf; i <= kHalf; ++i)
        product += heard[static_cast<std::size_t>(whole + offset + i)] *
                   click((whole - middle + i) / kRate);
      if (product > most) best = offset, most = product;
    }
    return best;
  }
};

TEST_P(LoopClickTest, EveryClickStandsWhereTheCompositionPutsIt) {
  const auto heard = record(std::string("loop_click_") + GetParam().name, kSeams + 0.9);
  ASSERT_GE(heard.size(), frameAt((kSeams + 0.8) * loopSeconds));
  const auto& source = GetParam();
  const double delay = source.delay / kRate;
  const int off = offsetOfClick(heard, 0.25 - kTrim + delay);
  EXPECT_LE(std::abs(off), source.tolerance + 1);
  const double late = delay + (source.tolerance > 0 ? off / kRate : 0);
  std::vector<double> clicks;
  for (int round = 0; round <= kSeams; ++round) {
    for (const double inClip : {0.25, 0.75}) {
      const double due = round * loopSeconds + inClip + late - kTrim;
      EXPECT_LE(std::abs(offsetOfClick(heard, due)), 1) << "the click at " << due << " s";
      EXPECT_GE(std::abs(heard[frameAt(due)]), 0.6) << "the click at " << due << " s";
      clicks.push_back(due);
    }
  }
  double loudest = 0;
  for (std::size_t i = 0; i < frameAt(clicks.back()); ++i) {
    const double at = static_cast<double>(i) / kRate;
    const bool isClick = std::any_of(clicks.begin(), clicks.end(),
                                     [&](double click) { return std::abs(at - click) < 0.01; });
    if (!isClick) loudest = std::max<double>(loudest, std::abs(heard[i]));
  }
  EXPECT_LE(loudest, 0.1) << "nothing else is heard";
}

INSTANTIATE_TEST_SUITE_P(Sources, LoopClickTest, kSources, nameOf);

// Sound and picture of unlike length

class UnlikeLengthTest : public LoopSoundTest {
 protected:
  /// How far what is heard in 5 ms from a time on is from what should be, as a share of the tone.
  static double error(const std::vector<float>& heard, const ExpectedSound& wanted, double from) {
    double sum = 0;
    for (auto i = frameAt(from); i < frameAt(from + 0.005); ++i)
      sum += std::pow(heard[i] - wanted.at(static_cast<double>(i) / kRate), 2);
    return std::sqrt(sum / (0.005 * kRate)) / LoopTone::kAmplitude;
  }
  static void expectSound(const std::vector<float>& heard, const ExpectedSound& wanted) {
    ASSERT_GE(heard.size(), frameAt((kSeams + 0.4) * wanted.loopSeconds));
    for (double at = 0.005; at < (kSeams + 0.3) * wanted.loopSeconds; at += 0.005)
      ASSERT_LE(error(heard, wanted, at), 0.02) << "at " << at << " s";
  }
};

TEST_F(UnlikeLengthTest, SoundThatEndsBeforeThePictureLeavesTheRestOfEachRoundSilent) {
  const auto heard = record("loop_short_sound.mov", kSeams + 0.5);
  EXPECT_NEAR(loopSeconds, 0.9, 1e-6);
  const auto halfASecond = [](double seconds) { return seconds < 0.5 ? LoopTone::at(seconds) : 0; };
  expectSound(heard, {halfASecond, loopSeconds, 0});
}

TEST_F(UnlikeLengthTest, SoundThatOutlastsThePictureIsCutWhereThePictureStartsAgain) {
  const auto heard = record("loop_long_sound.mov", (kSeams + 0.6) * 0.95 / 1.4);
  EXPECT_NEAR(loopSeconds, 1.4, 1e-6) << "the length of the whole clip less the trim";
  // The picture itself is there for 0.95 s of a round.
  expectSound(heard, {LoopTone::at, 0.95, 0});
}

TEST_F(UnlikeLengthTest, SoundOfMoreThanTwoRoundsIsCutThereToo) {
  const auto heard = record("loop_much_sound.mov", (kSeams + 0.6) * 0.95 / 3.1);
  EXPECT_NEAR(loopSeconds, 3.1, 1e-6);
  expectSound(heard, {LoopTone::at, 0.95, 0});
}

TEST_F(UnlikeLengthTest, SoundThatEndsBeforeARoundBeginsIsNotHeard) {
  for (const char* name : {"loop_scrap_of_sound.mov", "loop_empty_sound.mov"}) {
    const auto heard = record(name, 3.5);
    EXPECT_NEAR(loopSeconds, 0.9, 1e-6) << name;
    for (const float sample : heard) ASSERT_EQ(sample, 0) << name;
  }
}

// The first round

class FadeInTest : public LoopSoundTest {
 protected:
  /// The level of 20 ms from a time on, as a share of the tone's.
  static double share(const std::vector<float>& heard, double seconds) {
    return level(heard, frameAt(seconds), 960) / LoopTone::kAmplitude * std::numbers::sqrt2;
  }
};

TEST_F(FadeInTest, RisesFromSilenceForTwoSecondsOfALongClip) {
  const auto heard = record("loop_tone_3_s.mov", 1, AVPlayerItemLoaderOptions::fadeIn);
  ASSERT_GE(heard.size(), frameAt(2.8));
  for (double at = 0.02; at < 1.95; at += 0.1)
    EXPECT_NEAR(share(heard, at), (at + 0.01) / 2, 0.02) << at;
  for (double at = 2.0; at < 2.7; at += 0.1) EXPECT_NEAR(share(heard, at), 1, 0.02) << at;
}

TEST_F(FadeInTest, RisesOverTheWholeFirstRoundOfAShortClipAndOnlyThat) {
  const auto heard = record("loop_tone_pcm.mov", 3, AVPlayerItemLoaderOptions::fadeIn);
  ASSERT_GE(heard.size(), frameAt(2.6));
  for (double at = 0.02; at < 0.85; at += 0.1)
    EXPECT_NEAR(share(heard, at), (at + 0.01) / 0.9, 0.02) << at;
  for (const double at : {0.97, 1.2, 1.7, 1.87, 2.0, 2.5}) EXPECT_NEAR(share(heard, at), 1, 0.02);
}

TEST_F(FadeInTest, IsNotThereUnlessAskedFor) {
  const auto heard = record("loop_tone_3_s.mov", 0.9);
  ASSERT_GE(heard.size(), frameAt(2));
  for (double at = 0.02; at < 1.95; at += 0.1) EXPECT_NEAR(share(heard, at), 1, 0.02) << at;
}

}  // namespace
}  // namespace zaffo
