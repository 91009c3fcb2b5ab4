#include "platform/media/codec/CodecIdentity.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

namespace zaffo::media {
namespace {

CodecParametersPtr sound() {
  CodecParametersPtr parameters(avcodec_parameters_alloc());
  parameters->codec_type = AVMEDIA_TYPE_AUDIO;
  parameters->codec_id = AV_CODEC_ID_AAC;
  parameters->sample_rate = 48000;
  parameters->format = AV_SAMPLE_FMT_FLTP;
  parameters->extradata = static_cast<uint8_t*>(av_mallocz(4 + AV_INPUT_BUFFER_PADDING_SIZE));
  parameters->extradata_size = 4;
  std::memcpy(parameters->extradata, "abcd", 4);
  av_channel_layout_default(&parameters->ch_layout, 2);
  return parameters;
}

bool matchesAfter(const std::function<void(AVCodecParameters&)>& change) {
  const CodecIdentity identity(*sound());
  const CodecParametersPtr other = sound();
  change(*other);
  return identity.matches(*other);
}

TEST(CodecIdentity, SoundOfOneKindMatchesWhoeverDescribesIt) {
  EXPECT_TRUE(matchesAfter([](AVCodecParameters&) {}));
}

TEST(CodecIdentity, WhatTheDecoderDoesNotDependOnMayDiffer) {
  EXPECT_TRUE(matchesAfter([](AVCodecParameters& p) { p.bit_rate = 1; }));
  EXPECT_TRUE(matchesAfter([](AVCodecParameters& p) { p.codec_tag = 1; }));
  EXPECT_TRUE(matchesAfter([](AVCodecParameters& p) { p.initial_padding = 1024; }));
}

TEST(CodecIdentity, WhatTheDecoderWasSetUpForMayNot) {
  EXPECT_FALSE(matchesAfter([](AVCodecParameters& p) { p.codec_id = AV_CODEC_ID_MP3; }));
  EXPECT_FALSE(matchesAfter([](AVCodecParameters& p) { p.format = AV_SAMPLE_FMT_S16; }));
  EXPECT_FALSE(matchesAfter([](AVCodecParameters& p) { p.sample_rate = 44100; }));
  EXPECT_FALSE(matchesAfter([](AVCodecParameters& p) { p.block_align = 8; }));
  EXPECT_FALSE(matchesAfter([](AVCodecParameters& p) { p.bits_per_coded_sample = 24; }));
  EXPECT_FALSE(matchesAfter([](AVCodecParameters& p) { p.width = 2; }));
  EXPECT_FALSE(matchesAfter([](AVCodecParameters& p) { p.height = 2; }));
  EXPECT_FALSE(matchesAfter([](AVCodecParameters& p) { p.extradata[3] = 'x'; }));
  EXPECT_FALSE(matchesAfter([](AVCodecParameters& p) { p.extradata_size = 3; }));
  EXPECT_FALSE(
      matchesAfter([](AVCodecParameters& p) { av_channel_layout_default(&p.ch_layout, 1); }));
}

TEST(CodecIdentity, OutlivesWhatItWasMadeOf) {
  CodecParametersPtr gone = sound();
  const CodecIdentity identity(*gone);
  gone.reset();
  EXPECT_TRUE(identity.matches(*sound()));
}

}  // namespace
}  // namespace zaffo::media
