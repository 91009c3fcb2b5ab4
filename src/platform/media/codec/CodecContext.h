#pragma once

#include "platform/foundation/Result.h"
#include "platform/media/FFmpegCommon.h"

namespace zaffo::media {

/// Opens a decoder for `parameters` with `threads` threads. Codecs are an allow list. Fails when
/// the codec is not on it, or the parameters are beyond the limits (a side of more than 16384
/// pixels, more than 64 Mi pixels in all) or refused by the decoder.
Result<CodecContextPtr> openCodec(const AVCodecParameters& parameters, int threads);

/// Why openCodec() has no decoder for `parameters`, before any is opened; null when it has one.
[[nodiscard]] NSErrorPtr whyNotDecoded(const AVCodecParameters& parameters);

}  // namespace zaffo::media
