// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/LoopedSound.h"

#include <complex>

#include "platform/avfoundation/PlayerFixture.h"
#include "platform/avfoundation/engine/EnginePlayer.h"

namespace zaffo {
namespace {

using media::CapturedOutput;
using media::kTestOutputRate;

class LoopedSoundTest : public testing::Test {
 protected:
  ~LoopedSoundTest() override {
    player_.reset();
    time_.settle();
  }

  [[nodiscard]] std::shared_ptr<AVAsset> load(const std::string& name) {
    auto asset = AVAsset::assetWithURL(NSURL::fileURLWithPath(test::clip(name)));
    asset->loadValuesAsynchronouslyForKeys({"tracks", "duration"}, [] {});
    time_.settle();
    return asset;
  }

  void put(const LoopedClip& loop) {
    player_->replaceCurrentItemWithPlayerItem(loop.item());
    time_.settle();
  }

  void seek(CMTime time) {
    player_->seekToTime(time, kCMTimeZero, kCMTimeZero, nullptr);
    time_.settle();
  }

  void play(double seconds, float rate = 1) {
    player_->setRate(rate);
    time_.advance(std::llround(seconds * 1e9));
  }

  /// What was heard of `count` frames since the last start.
  [[nodiscard]] std::vector<float> heard(int64_t count, int64_t from = 0) const {
    const int64_t start = output_.starts().back() + from;
    return output_.heard(start, start + count);
  }

  static int64_t frameOf(CMTime time) {
    return std::llround(CMTimeGetSeconds(time) * kTestOutputRate);
  }

  ManualTime time_;
  CapturedOutput output_;
  std::shared_ptr<AVPlayer> player_ = EnginePlayer::create(output_);
};

/// Everything is in the mix: nothing is dropped, repeated or displaced at ten seams.
void expectSame(const std::vector<float>& sound, const std::vector<float>& expected,
                float tolerance = 1e-5F) {
  const Difference difference(sound, expected);
  EXPECT_LT(difference.largest, tolerance) << "at frame " << difference.frame;
}

/// The place of the click that is nearest to `frame`, between frames too.
double clickNear(const std::vector<float>& sound, int64_t frame) {
  const auto at = [&sound](int64_t i) { return double{sound.at(static_cast<std::size_t>(2 * i))}; };
  int64_t peak = frame;
  for (int64_t i = frame - 2000; i < frame + 2000; ++i) {
    if (at(i) > at(peak)) peak = i;
  }
  const double bend = at(peak - 1) - 2 * at(peak) + at(peak + 1);
  return static_cast<double>(peak) + 0.5 * (at(peak - 1) - at(peak + 1)) / bend;
}

/// Root mean square of the left side of frames [first, first + count).
double level(const std::vector<float>& sound, int64_t first, int64_t count) {
  double energy = 0;
  for (int64_t i = first; i < first + count; ++i) {
    energy += std::pow(sound.at(static_cast<std::size_t>(2 * i)), 2);
  }
  return std::sqrt(energy / static_cast<double>(count));
}

float largestStep(const std::vector<float>& sound) {
  float largest = 0;
  for (std::size_t i = 2; i < sound.size(); i += 2) {
    largest = std::max(largest, std::abs(sound[i] - sound[i - 2]));
  }
  return largest;
}

class SoundOf : public LoopedSoundTest, public testing::WithParamInterface<const char*> {};

TEST_P(SoundOf, TenSeamsIsTheMixOfTheDecodedSourceSampleForSample) {
  const std::string name = std::string("loop_tone_") + GetParam();
  const LoopedClip loop(load(name), 12, false);
  put(loop);
  play(11.5 * CMTimeGetSeconds(loop.length));
  const int64_t frames = frameOf(loop.seam(11));
  const ReferenceMix reference(loop, media::decodeAudio(test::clip(name)));
  expectSame(heard(frames), reference.frames(0, frames));
}

TEST_P(SoundOf, ASteadyToneHasNoStepThatIsNotItsOwn) {
  const std::string name = std::string("loop_tone_") + GetParam();
  const LoopedClip loop(load(name), 12, false);
  put(loop);
  play(11.5 * CMTimeGetSeconds(loop.length));
  constexpr float kRampStep = 1.0F / 2400;
  EXPECT_LE(largestStep(heard(frameOf(loop.seam(11)))),
            largestStep(media::decodeAudio(test::clip(name)).samples) + kRampStep);
}

// 442 Hz goes round 397.8 times in 0.9 s: at a seam the copies are 72 degrees apart.
TEST_P(SoundOf, TwoLinearRampsGiveTheLevelThatTheirPhasesMake) {
  const std::string name = std::string("loop_tone_") + GetParam();
  const LoopedClip loop(load(name), 12, false);
  put(loop);
  play(11.5 * CMTimeGetSeconds(loop.length));
  const auto sound = heard(frameOf(loop.seam(11)));
  const double turn = 2 * M_PI * 442 * CMTimeGetSeconds(loop.length);
  constexpr int64_t kPart = 480;
  for (int seam = 1; seam <= 10; ++seam) {
    for (int64_t from = 0; from < 2400; from += kPart) {
      double energy = 0;
      for (int64_t i = from; i < from + kPart; ++i) {
        const double rising = static_cast<double>(i) / 2400;
        energy += std::norm(std::polar(0.5 * rising, 0.0) + std::polar(0.5 * (1 - rising), turn));
      }
      const double expected = std::sqrt(energy / kPart / 2);
      const double measured = level(sound, frameOf(loop.seam(seam)) + from, kPart);
      EXPECT_LT(std::abs(20 * std::log10(measured / expected)), 0.5) << seam << " " << from;
    }
  }
}

TEST_P(SoundOf, EveryClickStandsWhereTheCompositionPutsIt) {
  const std::string name = std::string("loop_click_") + GetParam();
  if (name == "loop_click_mp3.mkv") GTEST_SKIP() << "such files do not tell the encoder's delay";
  const LoopedClip loop(load(name), 12, false);
  put(loop);
  play(11.5 * CMTimeGetSeconds(loop.length));
  const auto sound = heard(frameOf(loop.seam(11)));
  for (int copy = 0; copy < 11; ++copy) {
    for (const int64_t milliseconds : {200, 700}) {  // 0.25 s and 0.75 s of the clip
      const auto expected = frameOf(loop.seam(copy) + CMTimeMake(milliseconds, 1000));
      EXPECT_NEAR(clickNear(sound, expected), static_cast<double>(expected), 0.1) << copy;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Codecs, SoundOf,
                         testing::Values("aac.mp4", "aac_44100.mp4", "mp3.mp4", "mp3.mkv",
                                         "opus.mp4", "opus.mkv", "pcm.mov"));

TEST_F(LoopedSoundTest, CopiesThatDoNotBeginOnAnOutputFrameKeepTheirPhaseAsFarAsTheirRateAllows) {
  struct Case {
    const char* name;
    double framesOff;
  };
  // At 44.1 kHz the resampler shifts; at 48 kHz the nearest frame is taken.
  for (const Case& c : {Case{"loop_click_aac_44100.mp4", 0.03}, Case{"loop_click_aac.mp4", 0.51}}) {
    const LoopedClip loop(load(c.name), 12, false, CMTimeMake(100'001, 110'000));
    put(loop);
    play(11.5 * CMTimeGetSeconds(loop.length));
    const auto sound = heard(frameOf(loop.seam(11)));
    for (int copy = 0; copy < 11; ++copy) {
      const double expected = (CMTimeGetSeconds(loop.seam(copy)) + 0.2) * kTestOutputRate;
      EXPECT_NEAR(clickNear(sound, std::llround(expected)), expected, c.framesOff) << copy;
    }
    player_->setRate(0);
    player_->replaceCurrentItemWithPlayerItem(nullptr);
    time_.settle();
  }
}

TEST_F(LoopedSoundTest, TheFirstCopyRisesFromSilenceWhenItFadesIn) {
  const LoopedClip loop(load("loop_tone_3_s.mov"), 3, true);
  put(loop);
  play(6.5);
  const int64_t frames = frameOf(loop.seam(2));
  const auto sound = heard(frames);
  for (const int64_t tenth : {1, 5, 10, 15, 19}) {
    EXPECT_NEAR(level(sound, tenth * 4800 - 1086, 2172),
                static_cast<double>(tenth) / 20 * 0.5 / std::sqrt(2), 2e-3)
        << tenth;
  }
  EXPECT_NEAR(level(sound, 2 * kTestOutputRate, 4344), 0.5 / std::sqrt(2), 1e-3);
  expectSame(
      sound,
      ReferenceMix(loop, media::decodeAudio(test::clip("loop_tone_3_s.mov"))).frames(0, frames));
}

TEST_F(LoopedSoundTest, TheFirstCopyIsAtFullVolumeFromItsFirstSampleWhenItDoesNot) {
  const LoopedClip loop(load("loop_tone_3_s.mov"), 3, false);
  put(loop);
  play(1);
  EXPECT_NEAR(level(heard(4344), 0, 4344), 0.5 / std::sqrt(2), 1e-3);
}

class LengthsOfSound : public LoopedSoundTest, public testing::WithParamInterface<const char*> {};

TEST_P(LengthsOfSound, AreHeardWhereTheyAreAndSilentBeyond) {
  const auto clip = load(GetParam());
  const CMTime picture = clip->tracksWithMediaType(AVMediaTypeVideo).front()->timeRange.duration;
  const LoopedClip loop(clip, 12, false, picture - LoopedClip::kTrim - LoopedClip::kTrim);
  put(loop);
  play(11.5 * CMTimeGetSeconds(loop.length));
  const int64_t frames = frameOf(loop.seam(11));
  const ReferenceMix reference(loop, media::decodeAudio(test::clip(GetParam())));
  expectSame(heard(frames), reference.frames(0, frames));
}

INSTANTIATE_TEST_SUITE_P(Clips, LengthsOfSound,
                         testing::Values("loop_short_sound.mov", "loop_long_sound.mov",
                                         "loop_tone_0.5_s.mov"));

TEST_F(LoopedSoundTest, APictureWithoutSoundOpensNoInput) {
  const LoopedClip loop(load("loop_1_s.mp4"), 3, true);
  put(loop);
  play(2);
  EXPECT_EQ(output_.inputs(), 0);
  EXPECT_NEAR(CMTimeGetSeconds(player_->currentTime()), 2, 0.01);
}

TEST_F(LoopedSoundTest, FiftyOneCopiesAreHeardToTheEndOfTheLast) {
  const std::string name = "loop_tone_aac.mp4";
  const LoopedClip loop(load(name), 51, true);
  put(loop);
  const CMTime place = loop.seam(48) + CMTimeMake(1, 4);
  seek(place);
  play(CMTimeGetSeconds(loop.composition->duration() - place) + 0.5);
  EXPECT_EQ(player_->rate(), 0);
  EXPECT_NEAR(CMTimeGetSeconds(player_->currentTime()),
              CMTimeGetSeconds(loop.composition->duration()), 1e-4);
  const int64_t first = frameOf(place);
  const int64_t end = frameOf(loop.composition->duration());
  const ReferenceMix reference(loop, media::decodeAudio(test::clip(name)));
  expectSame(heard(end - first), reference.frames(first, end));
  EXPECT_EQ(level(heard(4800, end - first), 0, 4800), 0);
}

class PlacesToStart : public LoopedSoundTest, public testing::WithParamInterface<const char*> {};

TEST_P(PlacesToStart, InTheMiddleOfACrossFadeAreHeardFromThereOn) {
  const std::string name = std::string("loop_tone_") + GetParam();
  const LoopedClip loop(load(name), 12, false);
  const ReferenceMix reference(loop, media::decodeAudio(test::clip(name)));
  put(loop);
  for (const CMTime offset : {CMTimeMake(25, 1000), kCMTimeZero, CMTimeMake(-1, 1000),
                              CMTimeMake(50, 1000), CMTimeMake(400, 1000)}) {
    const CMTime place = loop.seam(3) + offset;
    seek(place);
    play(2);
    player_->setRate(0);
    time_.settle();
    const int64_t first = frameOf(place);
    expectSame(heard(90'000), reference.frames(first, first + 90'000));
  }
}

TEST_P(PlacesToStart, AfterAPauseAtASeamGoOnWithTheNextSample) {
  const std::string name = std::string("loop_tone_") + GetParam();
  const LoopedClip loop(load(name), 12, false);
  const ReferenceMix reference(loop, media::decodeAudio(test::clip(name)));
  put(loop);
  seek(loop.seam(2));
  for (int seam = 3; seam < 6; ++seam) {
    // Sound starts a little after the rate is set.
    play(CMTimeGetSeconds(loop.seam(seam) - player_->currentTime()) + 0.045 -
         (seam > 3 ? 0.02 : 0));
    player_->setRate(0);
    time_.settle();
    const CMTime paused = player_->currentTime();
    ASSERT_NEAR(CMTimeGetSeconds(paused - loop.seam(seam)), 0.025, 0.02);
    play(0.6);
    const int64_t first = frameOf(paused);
    expectSame(heard(24'000), reference.frames(first, first + 24'000));
  }
}

INSTANTIATE_TEST_SUITE_P(Codecs, PlacesToStart,
                         testing::Values("aac.mp4", "mp3.mp4", "opus.mp4", "opus.mkv", "pcm.mov"));

TEST_F(LoopedSoundTest, AnotherRateKeepsToneLevelAndPaceOverSeams) {
  for (const float rate : {0.5F, 1.5F, 2.0F}) {
    const LoopedClip loop(load("loop_tone_0.5_s.mov"), 51, false);  // 0.4 s: whole turns of 442 Hz
    put(loop);
    play(4, rate);
    const auto sound = heard(3 * kTestOutputRate);
    for (int64_t from = 4800; from < 3 * kTestOutputRate - 4800; from += 2400) {
      const double here = level(sound, from, 2400);
      EXPECT_NEAR(20 * std::log10(here / (0.5 / std::sqrt(2))), 0, 3) << rate << " " << from;
    }
    EXPECT_NEAR(CMTimeGetSeconds(player_->currentTime()), 4 * rate, 0.1);
    player_->setRate(0);
    player_->replaceCurrentItemWithPlayerItem(nullptr);
    time_.settle();
  }
}

TEST_F(LoopedSoundTest, ClicksStandAtTheirPlacesAtAnotherRateToo) {
  const LoopedClip loop(load("loop_click_pcm.mov"), 12, false);
  put(loop);
  play(6, 1.5F);
  const auto sound = heard(5 * kTestOutputRate);
  for (int copy = 1; copy < 6; ++copy) {
    const double expected = (CMTimeGetSeconds(loop.seam(copy)) + 0.2) / 1.5 * kTestOutputRate;
    EXPECT_NEAR(clickNear(sound, std::llround(expected)), expected, 0.025 * kTestOutputRate);
  }
}

TEST_F(LoopedSoundTest, AChangeOfRateAcrossASeamJoinsInAtItsPlace) {
  const std::string name = "loop_tone_aac.mp4";
  const LoopedClip loop(load(name), 12, false);
  put(loop);
  play(1.6, 2);
  player_->setRate(1);
  time_.settle();
  const double changed = CMTimeGetSeconds(player_->currentTime());
  const int64_t changedFrame = output_.present();
  time_.advance(2 * kNanosecondsPerSecond);
  // What stands `start` after the change is as much further in the composition.
  const int64_t start = output_.starts().back();
  const int64_t first = std::llround(changed * kTestOutputRate) + start - changedFrame;
  const ReferenceMix reference(loop, media::decodeAudio(test::clip(name)));
  expectSame(heard(80'000), reference.frames(first, first + 80'000), 0.03F);
}

TEST_F(LoopedSoundTest, TheSumOfAllTracksGoesThroughOneInput) {
  const LoopedClip loop(load("loop_tone_aac.mp4"), 12, false);
  put(loop);
  play(5);
  EXPECT_EQ(output_.inputs(), 1);
}

TEST_F(LoopedSoundTest, TheMixIsTheOneTheItemHadWhenThePlayerTookIt) {
  const LoopedClip loop(load("loop_tone_3_s.mov"), 3, false);
  const auto item = loop.item();
  player_->replaceCurrentItemWithPlayerItem(item);
  time_.settle();
  const auto silence = AVMutableAudioMix::audioMix();
  AVAudioMix::InputParameters parameters;
  for (const auto& track : loop.soundTracks) {
    const auto made = AVMutableAudioMixInputParameters::audioMixInputParametersWithTrack(
        std::shared_ptr<const AVMutableCompositionTrack>(track));
    made->setVolume(0, kCMTimeZero);
    parameters.push_back(made);
  }
  silence->setInputParameters(parameters);
  item->setAudioMix(silence);
  play(1);
  EXPECT_GT(level(heard(24'000), 0, 24'000), 0.3);
  player_->replaceCurrentItemWithPlayerItem(nullptr);
  player_->replaceCurrentItemWithPlayerItem(item);
  play(1);
  EXPECT_EQ(level(heard(24'000), 0, 24'000), 0);
}

}  // namespace
}  // namespace zaffo
