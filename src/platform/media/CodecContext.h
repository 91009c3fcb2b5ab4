#pragma once

#include "platform/media/FFmpegCommon.h"
#include "platform/media/FFmpegError.h"

namespace zaffo::media {

/// Opens a decoder for `parameters` with `threads` threads. Codecs are an allow list. Null with
/// `error` set when the codec is not on it, or the parameters are beyond the limits (a side of more
/// than 16384 pixels, more than 64 Mi pixels in all) or refused by the decoder.
[[nodiscard]] CodecContextPtr openCodec(const AVCodecParameters& parameters, int threads,
                                        NSErrorPtr* error);

/// Whether openCodec() has a decoder for `parameters` and they are within the limits.
[[nodiscard]] bool canDecode(const AVCodecParameters& parameters);

}  // namespace zaffo::media
