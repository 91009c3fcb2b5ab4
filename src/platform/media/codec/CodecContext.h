// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/foundation/Result.h"
#include "platform/media/FFmpegCommon.h"

namespace zaffo::media {

class FramePool;

/// Frames of a decoder may outlive it; what memory it kept for further ones goes with it.
struct CodecContextDeleter {
  void operator()(AVCodecContext* c) const;
  std::shared_ptr<FramePool> frames;
};
using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextDeleter>;

/// Opens a decoder for `parameters` with `threads` threads. Codecs are an allow list. Fails when
/// the codec is not on it, or the parameters are beyond the limits (a side of more than 16384
/// pixels, more than 64 Mi pixels in all) or refused by the decoder. Its frames lie in a FramePool.
Result<CodecContextPtr> openCodec(const AVCodecParameters& parameters, int threads);

/// Why openCodec() has no decoder for `parameters`, before any is opened; null when it has one.
[[nodiscard]] NSErrorPtr whyNotDecoded(const AVCodecParameters& parameters);

}  // namespace zaffo::media
