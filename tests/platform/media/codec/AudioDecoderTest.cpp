// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/AudioDecoder.h"

#include <algorithm>

#include "platform/media/Decoding.h"

namespace zaffo::media {
namespace {

using test::clip;
using test::toneOfSecond;

struct Expected {
  const char* name;
  double seconds;
  /// How far the end may be off: codecs whose containers do not tell the padding keep it.
  double tolerance = 0.0005;
};

class EverySound : public testing::TestWithParam<Expected> {};

TEST_P(EverySound, HasItsToneInEachSecondItsLengthAndNoGap) {
  const Expected& expected = GetParam();
  const Sound sound = decodeAudio(clip(expected.name));
  EXPECT_NEAR(static_cast<double>(sound.frames()) / kTestOutputRate, expected.seconds,
              expected.tolerance);
  EXPECT_LE(sound.first, kTestOutputRate / 100);
  EXPECT_EQ(sound.jumps, 0);
  constexpr int64_t kMargin = kTestOutputRate / 20;
  for (int second = 0; second < static_cast<int>(expected.seconds); ++second) {
    const int64_t from = second * int64_t{kTestOutputRate} + kMargin;
    const int64_t count = kTestOutputRate - 2 * kMargin;
    EXPECT_NEAR(sound.amplitude(toneOfSecond(second), from, count, 0), 0.5, 0.03) << second;
    EXPECT_NEAR(sound.amplitude(toneOfSecond(second), from, count, 1), 0.25, 0.02) << second;
    EXPECT_LT(sound.amplitude(toneOfSecond(second + 1), from, count, 0), 0.02) << second;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Clips, EverySound,
    testing::Values(Expected{"h264_30.mp4", 4}, Expected{"h264_25.mp4", 2},
                    Expected{"audio_only.m4a", 3}, Expected{"mpeg4_mp3.mp4", 2},
                    Expected{"vp9_opus.webm", 2, 0.002}, Expected{"vp8_vorbis.webm", 2, 0.015},
                    Expected{"h264_ac3.mp4", 2, 0.011}, Expected{"h264_flac.mp4", 2},
                    Expected{"h264_pcm.mov", 2}, Expected{"audio.mp3", 3},
                    Expected{"audio.flac", 3}, Expected{"audio.ogg", 3}, Expected{"audio.opus", 3},
                    Expected{"audio.wav", 3}, Expected{"audio.ac3", 3, 0.04},
                    Expected{"h264.mkv", 2, 0.05}, Expected{"fragmented.mp4", 2, 0.03}),
    [](const testing::TestParamInfo<Expected>& clipInfo) {
      std::string name = clipInfo.param.name;
      std::replace(name.begin(), name.end(), '.', '_');
      return name;
    });

// Where a tone of one second ends and the next begins, to a few samples: their phases meet at the
// full second, so the correlation with both is equal around it.
TEST(AudioDecoder, SoundStandsWhereItsTimesSay) {
  for (const char* name : {"h264_25.mp4", "h264_flac.mp4", "audio.opus", "audio.mp3"}) {
    const Sound sound = decodeAudio(clip(name));
    ASSERT_GT(sound.frames(), kTestOutputRate) << name;
    // The first sample of the tone of second 1 is at phase 0 and rises.
    double real = 0, imaginary = 0;
    const int64_t from = kTestOutputRate + kTestOutputRate / 10;
    const int64_t count = kTestOutputRate / 2;
    for (int64_t i = from; i < from + count; ++i) {
      const double angle = 2 * M_PI * toneOfSecond(1) * static_cast<double>(i) / kTestOutputRate;
      real += sound.samples[static_cast<std::size_t>(2 * i)] * std::cos(angle);
      imaginary += sound.samples[static_cast<std::size_t>(2 * i)] * std::sin(angle);
    }
    const double phase = std::atan2(real, imaginary);
    const double samplesOff = phase / (2 * M_PI * toneOfSecond(1)) * kTestOutputRate;
    EXPECT_NEAR(samplesOff, 0, 1.5) << name;
  }
}

TEST(AudioDecoder, MonoGoesToBothSidesAtFullLevel) {
  const Sound sound = decodeAudio(clip("mono.mp4"));
  EXPECT_NEAR(sound.amplitude(300, 4800, 38400, 0), 0.5, 0.03);
  EXPECT_NEAR(sound.amplitude(300, 4800, 38400, 1), 0.5, 0.03);
}

TEST(AudioDecoder, SurroundIsMixedDownWithoutClipping) {
  const Sound sound = decodeAudio(clip("surround.mp4"));
  const auto [low, high] = std::ranges::minmax(sound.samples);
  EXPECT_GT(sound.amplitude(300, 4800, 38400, 0), 0.1);
  EXPECT_NEAR(sound.amplitude(300, 4800, 38400, 0), sound.amplitude(300, 4800, 38400, 1), 0.01);
  EXPECT_LE(high, 1.0F);
  EXPECT_GE(low, -1.0F);
}

TEST(AudioDecoder, AJumpInTheTimesMovesTheSoundAfterIt) {
  const auto source = openClip(clip("h264_pcm.mov"));
  const auto cursor = openTrack(*source, AVMediaTypeAudio);
  const auto decoder = openAudioDecoder(*cursor);
  std::vector<AudioBlock> blocks;
  Sample sample;
  while (cursor->next(sample) == Outcome::Ready) {
    sample.heardUntil = kCMTimeInvalid;
    if (sample.presentation >= CMTimeMake(1, 1)) {
      sample.presentation = sample.presentation + CMTimeMake(1, 2);
    }
    ASSERT_EQ(decoder->send(sample), Outcome::Ready);
    (void)collect(*decoder, blocks);
  }
  decoder->drain();
  (void)collect(*decoder, blocks);
  const Sound sound = join(blocks);
  EXPECT_EQ(sound.jumps, 1);
  EXPECT_EQ(sound.frames(), kTestOutputRate * 5 / 2);
}

TEST(AudioDecoder, SmallUnsteadinessOfTheTimesLeavesTheSoundWhole) {
  const auto source = openClip(clip("h264_25.mp4"));
  const auto cursor = openTrack(*source, AVMediaTypeAudio);
  const auto decoder = openAudioDecoder(*cursor);
  std::vector<AudioBlock> blocks;
  Sample sample;
  for (int i = 0; cursor->next(sample) == Outcome::Ready; ++i) {
    if (i > 3) sample.presentation = sample.presentation + CMTimeMake(i % 3 - 1, 100);
    ASSERT_EQ(decoder->send(sample), Outcome::Ready);
    (void)collect(*decoder, blocks);
  }
  EXPECT_EQ(join(blocks).jumps, 0);
}

TEST(AudioDecoder, SamplesMarkedNotShownAreSilentAndWhatFollowsKeepsItsPlace) {
  const auto source = openClip(clip("h264_pcm.mov"));
  const auto cursor = openTrack(*source, AVMediaTypeAudio);
  const auto decoder = openAudioDecoder(*cursor);
  std::vector<AudioBlock> blocks;
  Sample sample;
  int64_t firstShown = -1;
  while (cursor->next(sample) == Outcome::Ready) {
    sample.decodeOnly = sample.presentation < CMTimeMake(1, 2);
    if (!sample.decodeOnly && firstShown < 0) {
      firstShown = CMTimeConvertScale(sample.presentation, kTestOutputRate).value;
    }
    ASSERT_EQ(decoder->send(sample), Outcome::Ready);
    (void)collect(*decoder, blocks);
  }
  EXPECT_EQ(blocks.front().firstFrame, firstShown);
}

TEST(AudioDecoder, WhatLiesOutsideTheHeardRangeIsLeftOutToTheSample) {
  const auto source = openClip(clip("h264_30.mp4"));
  const auto cursor = openTrack(*source, AVMediaTypeAudio);
  const auto decoder = openAudioDecoder(*cursor);
  std::vector<AudioBlock> blocks;
  Sample sample;
  while (cursor->next(sample) == Outcome::Ready) {
    sample.heardFrom = CMTimeMake(1001, 1000);
    sample.heardUntil = CMTimeMake(1502, 1000);
    ASSERT_EQ(decoder->send(sample), Outcome::Ready);
    (void)collect(*decoder, blocks);
  }
  decoder->drain();
  (void)collect(*decoder, blocks);
  const Sound sound = join(blocks);
  EXPECT_EQ(sound.first, kTestOutputRate * 1001 / 1000);
  EXPECT_NEAR(static_cast<double>(sound.frames()), kTestOutputRate * 1.502, 2);
  EXPECT_EQ(sound.jumps, 0);
}

TEST(AudioDecoder, GoesOnAfterDamagedSamples) {
  const auto source = openClip(clip("h264_30.mp4"));
  const auto cursor = openTrack(*source, AVMediaTypeAudio);
  const auto decoder = openAudioDecoder(*cursor);
  std::vector<AudioBlock> blocks;
  int errors = 0;
  for (Sample& sample : readAll(*cursor)) {
    if (sample.presentation > CMTimeMake(1, 2) && sample.presentation < CMTimeMake(1, 1)) {
      ASSERT_GE(av_packet_make_writable(sample.packet.get()), 0);
      for (int i = 0; i < sample.packet->size; ++i) sample.packet->data[i] ^= 0x5A;
    }
    errors += decoder->send(sample) == Outcome::Error;
    (void)collect(*decoder, blocks, &errors);
  }
  EXPECT_GT(errors, 0);
  const Sound sound = join(blocks);
  EXPECT_NEAR(sound.amplitude(toneOfSecond(2), 2 * kTestOutputRate + 4800, 38400, 0), 0.5, 0.03);
}

}  // namespace
}  // namespace zaffo::media
