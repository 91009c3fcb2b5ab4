// SPDX-License-Identifier: Apache-2.0
#include "platform/foundation/MakeError.h"
#include "platform/media/FFmpegError.h"
#include "platform/media/codec/CodecContext.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>

namespace zaffo::media {
namespace {

CodecParametersPtr video(AVCodecID codec, int width, int height) {
  CodecParametersPtr parameters(avcodec_parameters_alloc());
  parameters->codec_type = AVMEDIA_TYPE_VIDEO;
  parameters->codec_id = codec;
  parameters->width = width;
  parameters->height = height;
  return parameters;
}

/// The code of the error; 0 when it opens.
long openError(const AVCodecParameters& parameters) {
  const NSErrorPtr error = openCodec(parameters, 1).error();
  if (!error) return 0;
  EXPECT_EQ(error->domain(), AVFoundationErrorDomain);
  EXPECT_FALSE(error->localizedDescription().empty());
  return error->code();
}

TEST(CodecContext, OpensWithAsManyThreadsAsAskedFor) {
  const auto opened = openCodec(*video(AV_CODEC_ID_H264, 64, 48), 2);
  ASSERT_TRUE(opened);
  const CodecContextPtr& context = *opened;
  EXPECT_EQ(context->thread_count, 2);
  EXPECT_EQ(context->width, 64);
  EXPECT_EQ(context->codec_id, AV_CODEC_ID_H264);
}

/// The names of the process's threads, and the name of the one that asks.
std::multiset<std::string> threadNames() {
  std::multiset<std::string> names;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream comm(task.path() / "comm");
    std::string name;
    std::getline(comm, name);
    names.insert(name);
  }
  return names;
}

TEST(CodecContext, NamesTheThreadsOfADecoderAndLeavesTheNameOfItsOwn) {
  char before[16] = "", after[16] = "";
  pthread_getname_np(pthread_self(), before, sizeof before);
  const auto opened = openCodec(*video(AV_CODEC_ID_H264, 64, 48), 2);
  ASSERT_TRUE(opened);
  EXPECT_EQ(threadNames().count("zaffo-decode"), 2u);
  pthread_getname_np(pthread_self(), after, sizeof after);
  EXPECT_STREQ(before, after);
}

TEST(CodecContext, KnowsNoCodecThatIsNotOnItsList) {
  for (const AVCodecID codec : {AV_CODEC_ID_GIF, AV_CODEC_ID_MJPEG, AV_CODEC_ID_NONE}) {
    const CodecParametersPtr parameters = video(codec, 64, 48);
    EXPECT_TRUE(whyNotDecoded(*parameters)) << codec;
    EXPECT_EQ(openError(*parameters), AVErrorDecoderNotFound) << codec;
  }
}

TEST(CodecContext, TakesPicturesUpToTheLimits) {
  const struct {
    int width, height;
    bool fits;
  } sizes[] = {{16384, 4096, true},
               {16385, 16, false},
               {16, 16385, false},
               {8192, 8192, true},
               {8192, 8193, false}};
  for (const auto& size : sizes) {
    const CodecParametersPtr parameters = video(AV_CODEC_ID_H264, size.width, size.height);
    EXPECT_EQ(!whyNotDecoded(*parameters), size.fits) << size.width << "x" << size.height;
    EXPECT_EQ(openError(*parameters), size.fits ? 0L : long{AVErrorDecoderNotFound})
        << size.width << "x" << size.height;
  }
}

TEST(CodecContext, PlainSamplesAreOnTheListWhateverTheirWidth) {
  for (const AVCodecID codec :
       {AV_CODEC_ID_PCM_S16LE, AV_CODEC_ID_PCM_S24LE, AV_CODEC_ID_PCM_F32LE}) {
    CodecParametersPtr parameters(avcodec_parameters_alloc());
    parameters->codec_type = AVMEDIA_TYPE_AUDIO;
    parameters->codec_id = codec;
    parameters->sample_rate = 48000;
    av_channel_layout_default(&parameters->ch_layout, 2);
    EXPECT_FALSE(whyNotDecoded(*parameters));
    EXPECT_EQ(openError(*parameters), 0);
  }
}

TEST(CodecContext, WhatTheDecoderSaidLiesBeneathTheError) {
  CodecParametersPtr parameters(avcodec_parameters_alloc());
  parameters->codec_type = AVMEDIA_TYPE_AUDIO;
  parameters->codec_id = AV_CODEC_ID_VORBIS;  // which cannot be opened without its headers
  const NSErrorPtr error = openCodec(*parameters, 1).error();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), AVErrorDecoderNotFound);
  ASSERT_TRUE(error->underlyingError());
  EXPECT_EQ(error->underlyingError()->domain(), FFmpegErrorDomain);
}

}  // namespace
}  // namespace zaffo::media
