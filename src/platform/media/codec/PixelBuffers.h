// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/coremedia/CVPixelBuffer.h"
#include "platform/media/codec/FramePool.h"

namespace zaffo::media {

/// Wraps decoded frames as pixel buffers: by reference where the renderers know the format, and
/// converted to the nearest one they know otherwise. Thread: one at a time.
class PixelBuffers {
 public:
  /// `parameters` tells what the frames themselves leave open: matrix, range, where chroma lies,
  /// pixel aspect.
  explicit PixelBuffers(const AVCodecParameters& parameters);
  ~PixelBuffers();

  /// Takes `frame` over. Null when memory is short.
  [[nodiscard]] CVPixelBufferPtr wrap(FramePtr frame);

 private:
  [[nodiscard]] FramePtr convert(const AVFrame& frame);

  AVColorSpace colorSpace_;
  AVColorRange colorRange_;
  AVChromaLocation chromaLocation_;
  AVRational pixelAspect_;
  SwsPtr scaler_;
  std::shared_ptr<FramePool> converted_;
};

}  // namespace zaffo::media
