// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/StillImage.h"

extern "C" {
#include <libswscale/swscale.h>
}

#include <array>
#include <cmath>
#include <cstring>
#include <vector>

#include "platform/coremedia/PixelConversion.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/FFmpegCommon.h"
#include "platform/media/MappedMemory.h"

namespace zaffo::media {
namespace {

using Pixels = std::vector<uint8_t>;

std::size_t bytesPerRow(int width) {
  return std::size_t{4} * static_cast<std::size_t>(width);
}

bool scale(const CVPixelBuffer& buffer, int width, int height, Pixels& pixels) {
  const bool hasAlpha = buffer.format == CVPixelFormat::BGRA;
  constexpr int kFlags = SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP;
  const SwsPtr scaler(sws_getContext(buffer.cropWidth, buffer.cropHeight,
                                     hasAlpha ? AV_PIX_FMT_BGRA : AV_PIX_FMT_BGR0, width, height,
                                     AV_PIX_FMT_BGRA, kFlags, nullptr, nullptr, nullptr));
  if (!scaler) return false;
  const std::size_t stride = bytesPerRow(buffer.cropWidth);
  const MappedMemory whole(stride * static_cast<std::size_t>(buffer.cropHeight),
                           MappedMemory::Pages::AtOnce);
  if (!whole) return false;
  convertToBGRA(buffer, whole.data(), static_cast<std::ptrdiff_t>(stride));
  const std::array<const uint8_t*, 4> source{whole.data()};
  const std::array<uint8_t*, 4> target{pixels.data()};
  const std::array<int, 4> sourceStrides{static_cast<int>(stride)};
  const std::array<int, 4> targetStrides{static_cast<int>(bytesPerRow(width))};
  sws_scale(scaler.get(), source.data(), sourceStrides.data(), 0, buffer.cropHeight, target.data(),
            targetStrides.data());
  return true;
}

bool draw(const CVPixelBuffer& buffer, int width, int height, Pixels& pixels) {
  if (buffer.cropWidth != width || buffer.cropHeight != height) {
    return scale(buffer, width, height, pixels);
  }
  convertToBGRA(buffer, pixels.data(), static_cast<std::ptrdiff_t>(bytesPerRow(width)));
  return true;
}

}  // namespace

Result<CGImagePtr> makeImage(const CVPixelBuffer& buffer, int width, int height) {
  Pixels pixels;
  const bool positive = width > 0 && height > 0;
  if (positive) pixels.resize(bytesPerRow(width) * static_cast<std::size_t>(height));
  if (!positive || !draw(buffer, width, height, pixels)) {
    return makeError(AVErrorNoImageAtTime, "The picture cannot be scaled to " +
                                               std::to_string(width) + "x" +
                                               std::to_string(height) + " pixels.");
  }
  return std::make_shared<const CGImage>(width, height, bytesPerRow(width), std::move(pixels));
}

bool isQuarterTurn(CGAffineTransform t) {
  const auto unit = [](double v) { return std::abs(std::abs(v) - 1) < 1e-3; };
  const auto zero = [](double v) { return std::abs(v) < 1e-3; };
  return (unit(t.a) && unit(t.d) && zero(t.b) && zero(t.c)) ||
         (zero(t.a) && zero(t.d) && unit(t.b) && unit(t.c));
}

CGImagePtr turnedImage(CGImagePtr image, CGAffineTransform t) {
  if (!image || !isQuarterTurn(t)) return image;
  const long a = std::lround(t.a), b = std::lround(t.b), c = std::lround(t.c), d = std::lround(t.d);
  if (a == 1 && d == 1) return image;
  const long width = image->width(), height = image->height();
  const long turnedWidth = a != 0 ? width : height;
  const long turnedHeight = a != 0 ? height : width;
  // Where the first pixel goes, so that the others land in the positive quadrant.
  const long left = a < 0 ? width - 1 : c < 0 ? height - 1 : 0;
  const long top = b < 0 ? width - 1 : d < 0 ? height - 1 : 0;
  std::vector<uint8_t> pixels(static_cast<std::size_t>(width * height) * 4);
  for (long y = 0; y < height; ++y) {
    const uint8_t* row = image->pixels() + static_cast<std::size_t>(y) * image->stride();
    for (long x = 0; x < width; ++x) {
      const long to = (top + b * x + d * y) * turnedWidth + left + a * x + c * y;
      std::memcpy(&pixels[static_cast<std::size_t>(to) * 4], row + x * 4, 4);
    }
  }
  return std::make_shared<const CGImage>(
      static_cast<int>(turnedWidth), static_cast<int>(turnedHeight),
      static_cast<std::size_t>(turnedWidth) * 4, std::move(pixels));
}

}  // namespace zaffo::media
