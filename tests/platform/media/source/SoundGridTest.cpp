// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/SoundGrid.h"

#include <gtest/gtest.h>

namespace zaffo::media {
namespace {

constexpr AVRational kMilliseconds{1, 1000};

class SoundGridTest : public testing::Test {
 protected:
  AVStream& stream(AVCodecID codec, int sampleRate, int delay, AVRational timeBase) {
    AVStream* const made = avformat_new_stream(context_.get(), nullptr);
    made->time_base = timeBase;
    made->codecpar->codec_type = AVMEDIA_TYPE_AUDIO;
    made->codecpar->codec_id = codec;
    made->codecpar->sample_rate = sampleRate;
    made->codecpar->initial_padding = delay;
    return *made;
  }
  static SoundGrid gridOf(const AVStream& stream) { return {*stream.codecpar, stream.time_base}; }
  /// When packet `number` begins, in samples, and what milliseconds make of that.
  static int64_t rounded(int64_t sample, int sampleRate) {
    return (2 * sample * 1000 + sampleRate) / (2 * sampleRate);
  }

  FormatContextPtr context_{avformat_alloc_context()};
};

TEST_F(SoundGridTest, ARoundedTimeTellsTheExactOne) {
  const SoundGrid grid = gridOf(stream(AV_CODEC_ID_AAC, 44100, 0, kMilliseconds));
  for (int64_t packet = 0; packet < 10'000; ++packet) {
    ASSERT_EQ(grid.timeOf(rounded(packet * 1024, 44100)), CMTimeMake(packet * 1024, 44100));
  }
}

TEST_F(SoundGridTest, TheFirstPacketBeginsAsLongBeforeZeroAsTheEncoderDelays) {
  const SoundGrid grid = gridOf(stream(AV_CODEC_ID_OPUS, 48000, 312, kMilliseconds));
  EXPECT_EQ(grid.timeOf(-7), CMTimeMake(-312, 48000));
  EXPECT_EQ(grid.timeOf(13), CMTimeMake(960 - 312, 48000));
}

TEST_F(SoundGridTest, MusicOfLowRatesHasShorterPackets) {
  const SoundGrid low = gridOf(stream(AV_CODEC_ID_MP3, 22050, 0, kMilliseconds));
  EXPECT_EQ(low.timeOf(26), CMTimeMake(576, 22050));
  const SoundGrid full = gridOf(stream(AV_CODEC_ID_MP3, 44100, 0, kMilliseconds));
  EXPECT_EQ(full.timeOf(26), CMTimeMake(1152, 44100));
}

TEST_F(SoundGridTest, ATimeThatFitsNoPacketIsItsOwn) {
  const SoundGrid grid = gridOf(stream(AV_CODEC_ID_AAC, 48000, 0, kMilliseconds));
  EXPECT_EQ(grid.timeOf(10), CMTimeMake(10, 1000));
}

TEST_F(SoundGridTest, TimesThatAreNotRoundedAreTakenAsTheyAre) {
  const SoundGrid grid = gridOf(stream(AV_CODEC_ID_AAC, 48000, 0, {1, 48000}));
  EXPECT_EQ(grid.timeOf(1023), CMTimeMake(1023, 48000));
}

TEST_F(SoundGridTest, CodecsWithoutAKnownLengthOfPacketsAreTakenAsTheyAre) {
  const SoundGrid grid = gridOf(stream(AV_CODEC_ID_VORBIS, 44100, 0, kMilliseconds));
  EXPECT_EQ(grid.timeOf(23), CMTimeMake(23, 1000));
}

TEST_F(SoundGridTest, WhatTheFileDoesNotTellStaysUnknown) {
  const SoundGrid grid = gridOf(stream(AV_CODEC_ID_AAC, 44100, 0, kMilliseconds));
  EXPECT_TRUE(CMTIME_IS_INVALID(grid.timeOf(AV_NOPTS_VALUE)));
}

TEST_F(SoundGridTest, ATimeTooLateToBeCountedInSamplesIsItsOwn) {
  const SoundGrid grid = gridOf(stream(AV_CODEC_ID_AAC, 44100, 0, kMilliseconds));
  for (const int64_t timestamp : {INT64_MAX / 8, -INT64_MAX / 8}) {
    EXPECT_EQ(grid.timeOf(timestamp), CMTimeMake(timestamp, 1000));
  }
}

TEST_F(SoundGridTest, PicturesAreTakenAsTheyAre) {
  AVStream& pictures = stream(AV_CODEC_ID_H264, 0, 0, kMilliseconds);
  pictures.codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
  EXPECT_EQ(gridOf(pictures).timeOf(33), CMTimeMake(33, 1000));
}

}  // namespace
}  // namespace zaffo::media
