// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "platform/coremedia/CVPixelBuffer.h"
#include "platform/uikit/CGImage.h"

namespace zaffo::test {

/// How a test clip's picture carries its number. The top quarter is a row of twelve blocks of equal
/// width:
///
///     | white | black | 512 | 256 | 128 | 64 | 32 | 16 | 8 | 4 | 2 | 1 |
///
/// A bit's block is white when the bit is set. The first two give the levels to compare with, so
/// that range, matrix, scaling and coding loss do not matter; a picture without them has no number.
inline constexpr int kFrameNumberBlocks = 12;

/// Reads the number from `brightness`, which tells that of a point, in pixels.
[[nodiscard]] inline std::optional<int> readFrameNumber(
    int width, int height, const std::function<double(int x, int y)>& brightness) {
  if (width < kFrameNumberBlocks || height < 8) return std::nullopt;
  const auto block = [&](int index) {
    const int x = (2 * index + 1) * width / (2 * kFrameNumberBlocks);
    return brightness(x, height / 8);
  };
  const double white = block(0), black = block(1);
  if (white - black < 60) return std::nullopt;
  int number = 0;
  for (int i = 2; i < kFrameNumberBlocks; ++i) {
    number = number * 2 + (block(i) > (white + black) / 2 ? 1 : 0);
  }
  return number;
}

/// The number of a decoded picture, as coded (before any rotation); nothing when it has none.
[[nodiscard]] inline std::optional<int> frameNumber(const CVPixelBufferPtr& buffer) {
  if (!buffer) return std::nullopt;
  const CVPixelBuffer::Plane& plane = buffer->planes[0];
  const auto brightness = [&](int x, int y) -> double {
    const uint8_t* row = plane.data + (y + buffer->cropTop) * plane.stride;
    const int column = x + buffer->cropLeft;
    switch (buffer->format) {
      case CVPixelFormat::I420P10:
      case CVPixelFormat::I422P10:
      case CVPixelFormat::I444P10:
        return reinterpret_cast<const uint16_t*>(row)[column] / 4.0;
      case CVPixelFormat::P010:
        return reinterpret_cast<const uint16_t*>(row)[column] / 256.0;
      case CVPixelFormat::BGRA:
        return row[4 * column + 1];
      default:
        return row[column];
    }
  };
  return readFrameNumber(buffer->cropWidth, buffer->cropHeight, brightness);
}

/// The number of a still picture that stands as it was coded; nothing when it has none.
[[nodiscard]] inline std::optional<int> frameNumber(const CGImagePtr& image) {
  if (!image) return std::nullopt;
  return readFrameNumber(image->width(), image->height(), [&](int x, int y) -> double {
    return image->pixels()[static_cast<std::size_t>(y) * image->stride() +
                           static_cast<std::size_t>(x) * 4 + 1];
  });
}

}  // namespace zaffo::test
