// SPDX-License-Identifier: Apache-2.0
#include "platform/media/CodecConfig.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

namespace zaffo::media {
namespace {

CodecParametersPtr parametersOf(AVMediaType type, AVCodecID codec) {
  CodecParametersPtr parameters(avcodec_parameters_alloc());
  parameters->codec_type = type;
  parameters->codec_id = codec;
  parameters->extradata = static_cast<uint8_t*>(av_mallocz(4 + AV_INPUT_BUFFER_PADDING_SIZE));
  parameters->extradata_size = 4;
  std::memcpy(parameters->extradata, "abcd", 4);
  return parameters;
}

CodecParametersPtr sound() {
  CodecParametersPtr parameters = parametersOf(AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_AAC);
  parameters->sample_rate = 48000;
  parameters->format = AV_SAMPLE_FMT_FLTP;
  av_channel_layout_default(&parameters->ch_layout, 2);
  return parameters;
}

CodecParametersPtr picture() {
  CodecParametersPtr parameters = parametersOf(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_H264);
  parameters->format = AV_PIX_FMT_YUV420P;
  parameters->width = 64;
  parameters->height = 48;
  return parameters;
}

using Change = std::function<void(AVCodecParameters&)>;

bool isEqualAfter(const Change& change, CodecParametersPtr (*make)()) {
  const CodecConfig config(*make());
  const CodecParametersPtr other = make();
  change(*other);
  EXPECT_EQ(config == *other, config == CodecConfig(*other));
  EXPECT_EQ(config == *other, CodecConfig(*other) == config);
  return config == *other;
}
bool isEqualSoundAfter(const Change& change) {
  return isEqualAfter(change, sound);
}
bool isEqualPictureAfter(const Change& change) {
  return isEqualAfter(change, picture);
}

TEST(CodecConfig, IsTheSameWhoeverDescribesIt) {
  EXPECT_TRUE(isEqualSoundAfter([](AVCodecParameters&) {}));
  EXPECT_TRUE(isEqualPictureAfter([](AVCodecParameters&) {}));
}

TEST(CodecConfig, WhatTheDecoderDoesNotDependOnMayDiffer) {
  EXPECT_TRUE(isEqualSoundAfter([](AVCodecParameters& p) { p.bit_rate = 1; }));
  EXPECT_TRUE(isEqualSoundAfter([](AVCodecParameters& p) { p.codec_tag = 1; }));
  EXPECT_TRUE(isEqualSoundAfter([](AVCodecParameters& p) { p.initial_padding = 1024; }));
  EXPECT_TRUE(isEqualPictureAfter([](AVCodecParameters& p) { p.bit_rate = 1; }));
  EXPECT_TRUE(isEqualPictureAfter([](AVCodecParameters& p) { p.bits_per_coded_sample = 24; }));
}

TEST(CodecConfig, WhatEveryDecoderIsSetUpForMayNot) {
  for (const auto isEqual : {isEqualSoundAfter, isEqualPictureAfter}) {
    EXPECT_FALSE(isEqual([](AVCodecParameters& p) { p.codec_type = AVMEDIA_TYPE_DATA; }));
    EXPECT_FALSE(isEqual([](AVCodecParameters& p) { p.codec_id = AV_CODEC_ID_NONE; }));
    EXPECT_FALSE(isEqual([](AVCodecParameters& p) { p.format = -1; }));
    EXPECT_FALSE(isEqual([](AVCodecParameters& p) { p.extradata[3] = 'x'; }));
    EXPECT_FALSE(isEqual([](AVCodecParameters& p) { p.extradata_size = 3; }));
  }
}

TEST(CodecConfig, WhatADecoderOfSoundIsSetUpForMayNot) {
  EXPECT_FALSE(isEqualSoundAfter([](AVCodecParameters& p) { p.sample_rate = 44100; }));
  EXPECT_FALSE(isEqualSoundAfter([](AVCodecParameters& p) { p.block_align = 8; }));
  EXPECT_FALSE(isEqualSoundAfter([](AVCodecParameters& p) { p.bits_per_coded_sample = 24; }));
  EXPECT_FALSE(
      isEqualSoundAfter([](AVCodecParameters& p) { av_channel_layout_default(&p.ch_layout, 1); }));
}

TEST(CodecConfig, WhatADecoderOfPicturesIsSetUpForMayNot) {
  EXPECT_FALSE(isEqualPictureAfter([](AVCodecParameters& p) { p.codec_tag = 1; }));
  EXPECT_FALSE(isEqualPictureAfter([](AVCodecParameters& p) { p.profile = 77; }));
  EXPECT_FALSE(isEqualPictureAfter([](AVCodecParameters& p) { p.width += 2; }));
  EXPECT_FALSE(isEqualPictureAfter([](AVCodecParameters& p) { p.height += 2; }));
  EXPECT_FALSE(isEqualPictureAfter([](AVCodecParameters& p) { p.sample_aspect_ratio.num = 4; }));
  EXPECT_FALSE(isEqualPictureAfter([](AVCodecParameters& p) { p.sample_aspect_ratio.den = 3; }));
  EXPECT_FALSE(isEqualPictureAfter([](AVCodecParameters& p) { p.color_range = AVCOL_RANGE_JPEG; }));
  EXPECT_FALSE(isEqualPictureAfter([](AVCodecParameters& p) { p.color_space = AVCOL_SPC_BT709; }));
  EXPECT_FALSE(
      isEqualPictureAfter([](AVCodecParameters& p) { p.color_primaries = AVCOL_PRI_BT709; }));
  EXPECT_FALSE(isEqualPictureAfter([](AVCodecParameters& p) { p.color_trc = AVCOL_TRC_BT709; }));
  EXPECT_FALSE(
      isEqualPictureAfter([](AVCodecParameters& p) { p.chroma_location = AVCHROMA_LOC_TOPLEFT; }));
}

TEST(CodecConfig, OutlivesWhatItWasMadeOf) {
  CodecParametersPtr gone = sound();
  const CodecConfig config(*gone);
  gone.reset();
  EXPECT_EQ(config, CodecConfig(*sound()));
}

}  // namespace
}  // namespace zaffo::media
