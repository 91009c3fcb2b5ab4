// SPDX-License-Identifier: Apache-2.0
#include "platform/media/soundtrack/AudioTrack.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "doubles/MemorySource.h"
#include "platform/media/Encoding.h"

namespace zaffo::media {
namespace {

constexpr int kRate = 48000;
constexpr int64_t kSample = 1000;  ///< frames of one

/// Tells the frames of a stretch apart, and fits a float exactly.
float levelAt(int64_t frame) {
  return static_cast<float>(frame % 65536 + 1) / 131072.0f;
}

/// Sound that was put together from what a track gave, and where each block stood.
struct Heard {
  std::vector<AudioBlock> blocks;
  Outcome outcome = Outcome::Ready;

  [[nodiscard]] int64_t frames() const {
    int64_t sum = 0;
    for (const AudioBlock& block : blocks) sum += block.frames();
    return sum;
  }
};

class AudioTrackTest : public testing::Test {
 protected:
  /// Sound in [first, first + frames).
  static std::vector<Sample> sound(int64_t first, int64_t frames) {
    return makeSound(first, frames, kSample, levelAt).samples;
  }
  void open(std::vector<Sample> samples, std::vector<VolumeRamp> ramps = {}) {
    trackID_ = source_->add({.type = AVMediaTypeAudio,
                             .parameters = makeSound(0, 0, kSample, levelAt).parameters,
                             .samples = std::move(samples),
                             .formats = {}});
    track_ = std::make_unique<AudioTrack>(source_, trackID_, kRate, VolumeEnvelope(ramps, kRate));
    track_->setReadyHandler([this] { ++ready_; });
  }
  static void append(std::vector<Sample>& samples, std::vector<Sample> more) {
    for (Sample& sample : more) samples.push_back(std::move(sample));
  }
  /// Reads on until the track knows all up to `frame`.
  Heard readTo(int64_t frame) {
    Heard heard;
    for (;;) {
      AudioBlock block;
      const int64_t known = track_->knownUntil();
      if (known >= frame && known != AudioTrack::kForEver) return heard;
      heard.outcome = track_->read(frame, block);
      if (heard.outcome != Outcome::Ready || block.samples.empty()) return heard;
      EXPECT_GE(block.firstFrame, known);
      EXPECT_LT(block.firstFrame, frame);
      heard.blocks.push_back(std::move(block));
    }
  }
  /// Each frame at its own level.
  static void expectInPlace(const Heard& heard) {
    for (const AudioBlock& block : heard.blocks) {
      for (int64_t i = 0; i < block.frames(); ++i) {
        const auto at = static_cast<std::size_t>(2 * i);
        ASSERT_EQ(block.samples[at], levelAt(block.firstFrame + i)) << block.firstFrame + i;
        ASSERT_EQ(block.samples[at + 1], -levelAt(block.firstFrame + i));
      }
    }
  }

  const std::shared_ptr<MemorySource> source_ = std::make_shared<MemorySource>();
  int trackID_ = 0;
  std::unique_ptr<AudioTrack> track_;
  int ready_ = 0;
};

TEST_F(AudioTrackTest, IsAtItsEndBeforeItIsSought) {
  open(sound(0, 10 * kSample));
  AudioBlock block;
  EXPECT_EQ(track_->knownUntil(), AudioTrack::kForEver);
  EXPECT_EQ(track_->read(kRate, block), Outcome::End);
  EXPECT_EQ(source_->cursors(), 0);
}

TEST_F(AudioTrackTest, GivesEveryFrameInItsPlace) {
  open(sound(0, 10 * kSample + 10));
  track_->seek(0);
  const Heard heard = readTo(AudioTrack::kForEver);
  expectInPlace(heard);
  EXPECT_EQ(heard.frames(), 10 * kSample + 10);
  EXPECT_EQ(heard.outcome, Outcome::End);
  EXPECT_EQ(track_->knownUntil(), AudioTrack::kForEver);
  EXPECT_EQ(track_->endFrame(), 10 * kSample + 10);
  EXPECT_FALSE(track_->failed());
}

/// One that takes each sample only when it is sent for the second time.
class ReluctantDecoder final : public AudioDecoder {
 public:
  explicit ReluctantDecoder(std::unique_ptr<AudioDecoder> inner) : inner_(std::move(inner)) {}
  Outcome send(const Sample& sample) override {
    return (refuses_ = !refuses_) ? Outcome::Again : inner_->send(sample);
  }
  Outcome receive(AudioBlock& block) override { return inner_->receive(block); }
  void drain() override { inner_->drain(); }
  void reset() override { inner_->reset(); }
  [[nodiscard]] bool decodes(const AVCodecParameters& parameters) const override {
    return inner_->decodes(parameters);
  }
  [[nodiscard]] NSErrorPtr error() const override { return inner_->error(); }

 private:
  const std::unique_ptr<AudioDecoder> inner_;
  bool refuses_ = false;
};

TEST_F(AudioTrackTest, ASampleThatTheDecoderDoesNotTakeYetIsSentAgain) {
  open(sound(0, 10 * kSample));
  const auto openReluctant = [](const AVCodecParameters& parameters,
                                int rate) -> Result<std::unique_ptr<AudioDecoder>> {
    return std::make_unique<ReluctantDecoder>(
        AudioDecoder::open(parameters, rate).valueOr(nullptr));
  };
  track_ = std::make_unique<AudioTrack>(source_, trackID_, kRate, VolumeEnvelope(), openReluctant);
  track_->seek(0);
  const Heard heard = readTo(AudioTrack::kForEver);
  expectInPlace(heard);
  EXPECT_EQ(heard.frames(), 10 * kSample);
}

TEST_F(AudioTrackTest, GivesFromTheFrameThatIsSoughtOn) {
  open(sound(0, 10 * kSample));
  track_->seek(2 * kSample + 345);
  const Heard heard = readTo(4 * kSample);
  expectInPlace(heard);
  ASSERT_FALSE(heard.blocks.empty());
  EXPECT_EQ(heard.blocks.front().firstFrame, 2 * kSample + 345);
  EXPECT_EQ(heard.blocks.back().end(), track_->knownUntil());
}

TEST_F(AudioTrackTest, WhatIsDecodedFromFurtherBackIsLeftOut) {
  std::vector<Sample> samples = sound(0, 10 * kSample);
  for (std::size_t i = 1; i < samples.size(); ++i) samples[i].sync = false;
  open(std::move(samples));
  track_->seek(6 * kSample + 7);
  const Heard heard = readTo(8 * kSample);
  expectInPlace(heard);
  ASSERT_FALSE(heard.blocks.empty());
  EXPECT_EQ(heard.blocks.front().firstFrame, 6 * kSample + 7);
}

TEST_F(AudioTrackTest, ASeekGoesBackAsWellAsOn) {
  open(sound(0, 10 * kSample));
  for (const int64_t frame : {8 * kSample, int64_t{0}, 3 * kSample + 1}) {
    track_->seek(frame);
    const Heard heard = readTo(frame + kSample);
    expectInPlace(heard);
    ASSERT_FALSE(heard.blocks.empty());
    EXPECT_EQ(heard.blocks.front().firstFrame, frame);
  }
}

TEST_F(AudioTrackTest, ReadsNoFurtherThanItWasAskedTo) {
  open(sound(0, 100 * kSample));
  track_->seek(0);
  (void)readTo(3 * kSample);
  EXPECT_LE(source_->reads(), 4);
  EXPECT_LT(track_->knownUntil(), 5 * kSample);
}

TEST_F(AudioTrackTest, AGapIsSilenceAndNoBlock) {
  std::vector<Sample> samples = sound(0, 2 * kSample);
  append(samples, sound(50 * kSample, 2 * kSample));
  open(std::move(samples));
  track_->seek(0);
  Heard heard = readTo(20 * kSample);
  EXPECT_EQ(heard.outcome, Outcome::Ready);
  EXPECT_EQ(heard.frames(), 2 * kSample);
  EXPECT_GE(track_->knownUntil(), 20 * kSample);
  heard = readTo(AudioTrack::kForEver);
  expectInPlace(heard);
  ASSERT_FALSE(heard.blocks.empty());
  EXPECT_EQ(heard.blocks.front().firstFrame, 50 * kSample);
  EXPECT_EQ(heard.frames(), 2 * kSample);
  EXPECT_EQ(track_->endFrame(), 52 * kSample);
}

TEST_F(AudioTrackTest, AGapThatTheSourceTellsIsNotReadBeforeItsTime) {
  open(sound(50 * kSample, 2 * kSample));
  source_->setEmptyUntil(
      [](int, CMTime time) { return CMTimeMaximum(time, CMTimeMake(50 * kSample, kRate)); });
  track_->seek(0);
  EXPECT_EQ(readTo(49 * kSample).outcome, Outcome::Ready);
  EXPECT_EQ(source_->cursors(), 0);
  const Heard heard = readTo(51 * kSample);
  EXPECT_EQ(source_->cursors(), 1);
  expectInPlace(heard);
  EXPECT_EQ(heard.blocks.front().firstFrame, 50 * kSample);
}

TEST_F(AudioTrackTest, ATrackThatIsKnownToBeEmptyEndsWithoutBeingRead) {
  open(sound(0, kSample));
  source_->setEmptyUntil([](int, CMTime) { return kCMTimePositiveInfinity; });
  track_->seek(0);
  EXPECT_EQ(readTo(kRate).outcome, Outcome::End);
  EXPECT_EQ(source_->cursors(), 0);
  EXPECT_FALSE(track_->failed());
}

TEST_F(AudioTrackTest, WaitsForASourceThatHasNothingYet) {
  open(sound(0, 10 * kSample));
  source_->let(2);
  track_->seek(0);
  Heard heard = readTo(5 * kSample);
  EXPECT_EQ(heard.outcome, Outcome::Again);
  EXPECT_EQ(ready_, 0);
  source_->let(100);
  EXPECT_EQ(ready_, 1);
  const Heard rest = readTo(5 * kSample);
  expectInPlace(rest);
  EXPECT_EQ(rest.outcome, Outcome::Ready);
  EXPECT_GE(heard.frames() + rest.frames(), 5 * kSample);
}

TEST_F(AudioTrackTest, WhatIsReadStandsUnderTheTracksVolume) {
  const CMTimeRange whole{kCMTimeZero, CMTimeMake(kSample, kRate)};
  open(sound(0, 3 * kSample), {{.range = whole, .start = 0, .end = 0.5f}});
  track_->seek(0);
  const Heard heard = readTo(AudioTrack::kForEver);
  for (const AudioBlock& block : heard.blocks) {
    for (int64_t i = 0; i < block.frames(); ++i) {
      const int64_t frame = block.firstFrame + i;
      const float volume = frame < kSample ? 0.5f * static_cast<float>(frame) / kSample : 0.5f;
      ASSERT_NEAR(block.samples[static_cast<std::size_t>(2 * i)], volume * levelAt(frame), 1e-6f);
    }
  }
}

TEST_F(AudioTrackTest, OnlyWhatIsHeardOfASampleIsGiven) {
  std::vector<Sample> samples = sound(0, 4 * kSample);
  for (Sample& sample : samples) {
    sample.heardFrom = CMTimeMake(kSample + 100, kRate);
    sample.heardUntil = CMTimeMake(3 * kSample - 200, kRate);
  }
  open(std::move(samples));
  track_->seek(0);
  const Heard heard = readTo(AudioTrack::kForEver);
  expectInPlace(heard);
  ASSERT_FALSE(heard.blocks.empty());
  EXPECT_EQ(heard.blocks.front().firstFrame, kSample + 100);
  EXPECT_EQ(track_->endFrame(), 3 * kSample - 200);
}

TEST_F(AudioTrackTest, WhereSamplesStartAnewAnotherFormatIsTakenOn) {
  Encoded second = makeSound(2 * kSample, 2 * kSample, kSample, levelAt);
  second.samples.front().isDiscontinuity = true;
  second.parameters->codec_id = AV_CODEC_ID_PCM_F32BE;
  for (Sample& sample : second.samples) {
    for (int i = 0; i + 4 <= sample.packet->size; i += 4) {
      std::reverse(sample.packet->data + i, sample.packet->data + i + 4);
    }
  }
  Encoded first = makeSound(0, 2 * kSample, kSample, levelAt);
  append(first.samples, std::move(second.samples));
  trackID_ = source_->add({.type = AVMediaTypeAudio,
                           .parameters = std::move(first.parameters),
                           .samples = std::move(first.samples),
                           .formats = {{2, second.parameters.get()}}});
  track_ = std::make_unique<AudioTrack>(source_, trackID_, kRate, VolumeEnvelope());
  track_->seek(0);
  const Heard heard = readTo(AudioTrack::kForEver);
  expectInPlace(heard);
  EXPECT_EQ(heard.frames(), 4 * kSample);
}

TEST_F(AudioTrackTest, SoundThatCannotBeOpenedHasFailedAndIsSilent) {
  open(sound(0, 4 * kSample));
  source_->refuseCursors();
  track_->seek(0);
  EXPECT_EQ(readTo(kRate).outcome, Outcome::End);
  EXPECT_TRUE(track_->failed());
  EXPECT_EQ(track_->knownUntil(), AudioTrack::kForEver);
}

TEST_F(AudioTrackTest, ASeekThatFailsFailsTheTrackForGood) {
  open(sound(0, 4 * kSample));
  source_->refuseSeeks();
  track_->seek(0);
  EXPECT_EQ(readTo(kRate).outcome, Outcome::End);
  EXPECT_TRUE(track_->failed());
  track_->seek(0);
  EXPECT_EQ(readTo(kRate).outcome, Outcome::End);
}

TEST_F(AudioTrackTest, SoundEndsWhereTheSourceIsTorn) {
  open(sound(0, 10 * kSample));
  source_->failBehind(3);
  track_->seek(0);
  const Heard heard = readTo(AudioTrack::kForEver);
  expectInPlace(heard);
  EXPECT_EQ(heard.frames(), 3 * kSample);
  EXPECT_EQ(track_->endFrame(), 3 * kSample);
  EXPECT_FALSE(track_->failed());
}

TEST_F(AudioTrackTest, ATimeThatNoSoundCanHaveEndsTheSound) {
  std::vector<Sample> samples = sound(0, 2 * kSample);
  append(samples, sound(1'000 * int64_t{kRate}, kSample));
  open(std::move(samples));
  track_->seek(0);
  const Heard heard = readTo(AudioTrack::kForEver);
  EXPECT_EQ(heard.frames(), 2 * kSample);
  EXPECT_EQ(track_->endFrame(), 2 * kSample);
}

TEST_F(AudioTrackTest, WhatWasLetGoOfIsReadAgainAfterASeek) {
  open(sound(0, 4 * kSample));
  track_->seek(0);
  (void)readTo(kSample);
  track_->release();
  EXPECT_EQ(track_->knownUntil(), AudioTrack::kForEver);
  track_->seek(kSample);
  const Heard heard = readTo(AudioTrack::kForEver);
  expectInPlace(heard);
  EXPECT_EQ(heard.frames(), 3 * kSample);
  EXPECT_EQ(source_->cursors(), 2);
}

}  // namespace
}  // namespace zaffo::media
