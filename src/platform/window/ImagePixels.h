// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/coremedia/CVPixelBuffer.h"
#include "platform/uikit/CGImage.h"

namespace zaffo::window {

/// The pixels of a still, as those of a moving picture; valid for as long as the image lives.
[[nodiscard]] inline CVPixelBuffer pixelBufferOf(const CGImage& image) {
  CVPixelBuffer buffer;
  buffer.format = CVPixelFormat::BGRA;
  buffer.width = buffer.cropWidth = image.width();
  buffer.height = buffer.cropHeight = image.height();
  buffer.planes[0] = {image.pixels(), static_cast<std::ptrdiff_t>(image.stride())};
  return buffer;
}

}  // namespace zaffo::window
