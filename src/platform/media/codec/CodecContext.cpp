// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/CodecContext.h"
#include "platform/Thread.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/FFmpegError.h"
#include "platform/media/HeapHoles.h"
#include "platform/media/codec/FramePool.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>

namespace zaffo::media {
namespace {

constexpr int kLongestSide = 16384;
constexpr int64_t kMostPixels = int64_t{64} * 1024 * 1024;

constexpr std::array kAllowed{AV_CODEC_ID_H264,   AV_CODEC_ID_HEVC, AV_CODEC_ID_VP8,
                              AV_CODEC_ID_VP9,    AV_CODEC_ID_AV1,  AV_CODEC_ID_MPEG4,
                              AV_CODEC_ID_AAC,    AV_CODEC_ID_MP3,  AV_CODEC_ID_OPUS,
                              AV_CODEC_ID_VORBIS, AV_CODEC_ID_FLAC, AV_CODEC_ID_AC3};

bool isPcm(AVCodecID id) {
  return id >= AV_CODEC_ID_FIRST_AUDIO && id < AV_CODEC_ID_ADPCM_IMA_QT;
}

const AVCodec* findDecoder(AVCodecID id) {
  if (!isPcm(id) && std::ranges::find(kAllowed, id) == kAllowed.end()) return nullptr;
  // FFmpeg's own AV1 decoder works on hardware only, and its name comes first in some builds.
  if (id == AV_CODEC_ID_AV1) {
    if (const AVCodec* dav1d = avcodec_find_decoder_by_name("libdav1d")) return dav1d;
  }
  return avcodec_find_decoder(id);
}

bool withinLimits(const AVCodecParameters& p) {
  if (p.codec_type != AVMEDIA_TYPE_VIDEO) return true;
  return p.width <= kLongestSide && p.height <= kLongestSide &&
         int64_t{p.width} * p.height <= kMostPixels;
}

NSErrorPtr decoderNotFound(const std::string& text) {
  return makeError(AVErrorDecoderNotFound, text);
}

/// FFmpeg's name of the codec, or the container's where FFmpeg does not know it.
std::string nameOf(const AVCodecParameters& parameters) {
  if (parameters.codec_id != AV_CODEC_ID_NONE) return avcodec_get_name(parameters.codec_id);
  char text[AV_FOURCC_MAX_STRING_SIZE];
  return parameters.codec_tag ? av_fourcc_make_string(text, parameters.codec_tag) : "none";
}

int getBuffer(AVCodecContext* codec, AVFrame* frame, int flags) {
  return static_cast<FramePool*>(codec->opaque)->allocate(*codec, *frame, flags);
}

CodecContextPtr allocateContext(const AVCodec* codec) {
  const auto frames = FramePool::create();
  CodecContextPtr context(avcodec_alloc_context3(codec), {frames});
  if (!context) return context;
  context->opaque = frames.get();
  context->get_buffer2 = getBuffer;
#if LIBAVCODEC_VERSION_MAJOR < 60
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  context->thread_safe_callbacks = 1;  // later versions take that for granted
#pragma GCC diagnostic pop
#endif
  return context;
}

}  // namespace

void CodecContextDeleter::operator()(AVCodecContext* c) const {
  avcodec_free_context(&c);
  if (frames) frames->close();
  returnHolesSoon();
}

NSErrorPtr whyNotDecoded(const AVCodecParameters& parameters) {
  if (!findDecoder(parameters.codec_id)) {
    return decoderNotFound("There is no decoder for \"" + nameOf(parameters) + "\".");
  }
  if (!withinLimits(parameters)) {
    return decoderNotFound("A picture of " + std::to_string(parameters.width) + "x" +
                           std::to_string(parameters.height) + " is too large.");
  }
  return nullptr;
}

Result<CodecContextPtr> openCodec(const AVCodecParameters& parameters, int threads) {
  keepFFmpegQuiet();
  if (NSErrorPtr reason = whyNotDecoded(parameters)) return reason;
  const AVCodec* codec = findDecoder(parameters.codec_id);
  CodecContextPtr context = allocateContext(codec);
  int result =
      context ? avcodec_parameters_to_context(context.get(), &parameters) : AVERROR(ENOMEM);
  if (result >= 0) {
    context->thread_count = threads;
    context->max_pixels = kMostPixels;
    context->max_samples = 1 << 20;
    std::optional<ForeignThreads> theirs;
    if (threads > 1) theirs.emplace("zaffo-decode");
    result = avcodec_open2(context.get(), codec, nullptr);
  }
  if (result >= 0) return context;
  return makeFFmpegError(AVErrorDecoderNotFound,
                         "The \"" + nameOf(parameters) + "\" track cannot be decoded.", result);
}

}  // namespace zaffo::media
