// SPDX-License-Identifier: Apache-2.0
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libavutil/mem.h>
}

#include <memory>

struct SwrContext;
struct SwsContext;

namespace zaffo::media {

/// AV_TIME_BASE_Q, whose own spelling is not C++.
inline constexpr AVRational kMicroseconds{1, AV_TIME_BASE};

/// Owners of FFmpeg's objects.
struct PacketDeleter {
  void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct FrameDeleter {
  void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct CodecParametersDeleter {
  void operator()(AVCodecParameters* p) const { avcodec_parameters_free(&p); }
};
struct IOContextDeleter {
  void operator()(AVIOContext* io) const {
    av_freep(&io->buffer);
    avio_context_free(&io);
  }
};
/// Closes the demuxer; not the AVIOContext, which is ours.
struct FormatContextDeleter {
  void operator()(AVFormatContext* c) const { avformat_close_input(&c); }
};
struct DictionaryDeleter {
  void operator()(AVDictionary* d) const { av_dict_free(&d); }
};
/// What FFmpeg's own allocation gave.
struct MemoryDeleter {
  void operator()(void* p) const { av_free(p); }
};
struct SwrDeleter {
  void operator()(SwrContext* c) const;
};
struct SwsDeleter {
  void operator()(SwsContext* c) const;
};
using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;
using CodecParametersPtr = std::unique_ptr<AVCodecParameters, CodecParametersDeleter>;
using IOContextPtr = std::unique_ptr<AVIOContext, IOContextDeleter>;
using FormatContextPtr = std::unique_ptr<AVFormatContext, FormatContextDeleter>;
using DictionaryPtr = std::unique_ptr<AVDictionary, DictionaryDeleter>;
using SwrPtr = std::unique_ptr<SwrContext, SwrDeleter>;
using SwsPtr = std::unique_ptr<SwsContext, SwsDeleter>;

/// Stops FFmpeg from writing to standard error: what matters reaches the application as an NSError.
/// A log level that the application set itself is left alone. Called before FFmpeg is used.
void keepFFmpegQuiet();

}  // namespace zaffo::media
