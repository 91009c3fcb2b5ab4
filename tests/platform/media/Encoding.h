// SPDX-License-Identifier: Apache-2.0
#pragma once

extern "C" {
#include <libavutil/opt.h>
}

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/media/Sample.h"
#include "platform/media/codec/CodecContext.h"
#include "platform/media/codec/VideoDecoder.h"

namespace zaffo::media {

/// A track's samples, made in memory.
struct Encoded {
  CodecParametersPtr parameters;
  std::vector<Sample> samples;  ///< in decode order
};

/// Pictures at 30 a second, each evenly of a grey that is its number. `format` as FFmpeg's options:
/// "g=12;bf=2". MPEG-4 has B frames that nothing refers to, and
/// times from zero on.
struct PictureScript {
  const char* codec = "mpeg4";
  const char* options = "g=12;bf=2";
  int count = 24;
  int size = 32;
  bool closedGroups = true;  ///< none leans on pictures of the group before
};

inline constexpr int kEncodedRate = 30;
inline constexpr int kGreyOfZero = 32;
inline constexpr int kGreyStep = 4;

/// The duration of `count` frames of an encoded stream, to a quarter of a frame.
inline CMTime frames(double count) {
  return CMTimeMake(std::llround(count * 4), 4 * kEncodedRate);
}

/// The number of a picture; nothing when it is not even, as one that leans on what was not decoded.
inline std::optional<int> pictureNumber(const CVPixelBufferPtr& picture) {
  if (!picture) return std::nullopt;
  const auto& luma = picture->planes[0];
  const auto at = [&luma](int x, int y) { return int{luma.data[y * luma.stride + x]}; };
  const int middle = at(picture->width / 2, picture->height / 2);
  for (int y = 0; y < picture->height; ++y) {
    for (int x = 0; x < picture->width; ++x) {
      if (std::abs(at(x, y) - middle) > 1) return std::nullopt;
    }
  }
  return (middle - kGreyOfZero + kGreyStep / 2) / kGreyStep;
}

inline FramePtr makePicture(int number, int size) {
  FramePtr frame(av_frame_alloc());
  frame->format = AV_PIX_FMT_YUV420P;
  frame->width = frame->height = size;
  EXPECT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
  for (int plane = 0; plane < 3; ++plane) {
    const int rows = plane == 0 ? size : size / 2;
    const int value = plane == 0 ? kGreyOfZero + kGreyStep * number : 128;
    std::memset(frame->data[plane], value,
                static_cast<std::size_t>(frame->linesize[plane]) * static_cast<std::size_t>(rows));
  }
  frame->pts = number;
  return frame;
}

/// Decode times that no later sample is presented before, as containers tell them.
inline void tellDecodeTimes(std::vector<Sample>& samples) {
  CMTime earliest = kCMTimePositiveInfinity;
  for (auto sample = samples.rbegin(); sample != samples.rend(); ++sample) {
    earliest = CMTimeMinimum(earliest, sample->presentation);
    sample->decode = earliest;
  }
}

inline Encoded encodePictures(const PictureScript& script = {}) {
  Encoded encoded;
  const AVCodec* const codec = avcodec_find_encoder_by_name(script.codec);
  CodecContextPtr context(avcodec_alloc_context3(codec));
  context->width = context->height = script.size;
  context->pix_fmt = AV_PIX_FMT_YUV420P;
  context->time_base = {1, kEncodedRate};
  context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_QSCALE;
  context->global_quality = 2 * FF_QP2LAMBDA;
  if (script.closedGroups) {
    context->flags |= AV_CODEC_FLAG_CLOSED_GOP;
    // The encoder wants this said: no group begins for a change of scene.
    (void)av_opt_set_int(context->priv_data, "sc_threshold", 1'000'000'000, 0);
  }
  context->thread_count = 1;
  AVDictionary* options = nullptr;
  EXPECT_EQ(av_dict_parse_string(&options, script.options, "=", ";", 0), 0);
  EXPECT_EQ(avcodec_open2(context.get(), codec, &options), 0);
  EXPECT_EQ(av_dict_count(options), 0) << "an option that the encoder does not know";
  av_dict_free(&options);
  encoded.parameters.reset(avcodec_parameters_alloc());
  EXPECT_GE(avcodec_parameters_from_context(encoded.parameters.get(), context.get()), 0);
  const auto receiveAll = [&] {
    for (;;) {
      PacketPtr packet(av_packet_alloc());
      if (avcodec_receive_packet(context.get(), packet.get()) < 0) return;
      Sample sample;
      sample.presentation = CMTimeMake(packet->pts, kEncodedRate);
      sample.duration = CMTimeMake(1, kEncodedRate);
      sample.sync = (packet->flags & AV_PKT_FLAG_KEY) != 0;
      sample.packet = std::move(packet);
      encoded.samples.push_back(std::move(sample));
    }
  };
  for (int number = 0; number < script.count; ++number) {
    const FramePtr picture = makePicture(number, script.size);
    EXPECT_EQ(avcodec_send_frame(context.get(), picture.get()), 0);
    receiveAll();
  }
  (void)avcodec_send_frame(context.get(), nullptr);
  receiveAll();
  tellDecodeTimes(encoded.samples);
  EXPECT_EQ(encoded.samples.size(), static_cast<std::size_t>(script.count));
  return encoded;
}

/// Stereo sound that needs no encoder: 32-bit float at 48000 frames a second, in samples of so many
/// frames, the frame at `n` being {level(n), -level(n)}.
template <typename Level>
Encoded makeSound(int64_t first, int64_t frames, int64_t framesPerSample, const Level& level) {
  Encoded encoded;
  encoded.parameters.reset(avcodec_parameters_alloc());
  encoded.parameters->codec_type = AVMEDIA_TYPE_AUDIO;
  encoded.parameters->codec_id = AV_CODEC_ID_PCM_F32LE;
  encoded.parameters->format = AV_SAMPLE_FMT_FLT;
  encoded.parameters->sample_rate = 48000;
  encoded.parameters->bits_per_coded_sample = 32;
  encoded.parameters->block_align = 8;
  av_channel_layout_default(&encoded.parameters->ch_layout, 2);
  for (int64_t at = first; at < first + frames; at += framesPerSample) {
    const int64_t count = std::min(framesPerSample, first + frames - at);
    Sample sample;
    sample.packet.reset(av_packet_alloc());
    EXPECT_EQ(av_new_packet(sample.packet.get(), static_cast<int>(8 * count)), 0);
    for (int64_t i = 0; i < count; ++i) {
      const float value[2] = {level(at + i), -level(at + i)};
      std::memcpy(sample.packet->data + 8 * i, value, sizeof value);
    }
    sample.packet->flags |= AV_PKT_FLAG_KEY;
    sample.presentation = sample.decode = CMTimeMake(at, 48000);
    sample.duration = CMTimeMake(count, 48000);
    sample.sync = true;
    encoded.samples.push_back(std::move(sample));
  }
  return encoded;
}

}  // namespace zaffo::media
