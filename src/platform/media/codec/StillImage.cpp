#include "platform/media/codec/StillImage.h"

extern "C" {
#include <libswscale/swscale.h>
}

#include <array>
#include <cmath>
#include <cstring>
#include <vector>

#include "platform/foundation/MakeError.h"
#include "platform/media/FFmpegCommon.h"

namespace zaffo::media {
namespace {

struct Layout {
  AVPixelFormat format;
  int chromaShiftX;
  int chromaShiftY;
  int bytesPerSample;
};

Layout layoutOf(CVPixelFormat format) {
  switch (format) {
    case CVPixelFormat::I420:
      return {AV_PIX_FMT_YUV420P, 1, 1, 1};
    case CVPixelFormat::I422:
      return {AV_PIX_FMT_YUV422P, 1, 0, 1};
    case CVPixelFormat::I444:
      return {AV_PIX_FMT_YUV444P, 0, 0, 1};
    case CVPixelFormat::I420P10:
      return {AV_PIX_FMT_YUV420P10LE, 1, 1, 2};
    case CVPixelFormat::I422P10:
      return {AV_PIX_FMT_YUV422P10LE, 1, 0, 2};
    case CVPixelFormat::I444P10:
      return {AV_PIX_FMT_YUV444P10LE, 0, 0, 2};
    // Two chroma samples side by side take the width that halving them saved.
    case CVPixelFormat::NV12:
      return {AV_PIX_FMT_NV12, 0, 1, 1};
    case CVPixelFormat::P010:
      return {AV_PIX_FMT_P010LE, 0, 1, 2};
    case CVPixelFormat::Gray8:
      return {AV_PIX_FMT_GRAY8, 0, 0, 1};
    case CVPixelFormat::BGRA:
      return {AV_PIX_FMT_BGRA, 0, 0, 4};
  }
  return {AV_PIX_FMT_NONE, 0, 0, 1};
}

int coefficientsOf(CVColorMatrix matrix) {
  switch (matrix) {
    case CVColorMatrix::BT601:
      return SWS_CS_ITU601;
    case CVColorMatrix::BT709:
      return SWS_CS_ITU709;
    case CVColorMatrix::BT2020:
      return SWS_CS_BT2020;
  }
  return SWS_CS_DEFAULT;
}

SwsPtr makeScaler(const CVPixelBuffer& buffer, AVPixelFormat format, int width, int height) {
  constexpr int kFlags = SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP;
  SwsPtr scaler(sws_getContext(buffer.cropWidth, buffer.cropHeight, format, width, height,
                               AV_PIX_FMT_BGRA, kFlags, nullptr, nullptr, nullptr));
  if (!scaler) return nullptr;
  constexpr int kUnity = 1 << 16;
  const bool full = buffer.range == CVColorRange::Full;
  // Fails for sources that are RGB already, which need no matrix.
  (void)sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(coefficientsOf(buffer.matrix)),
                                 full, sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, kUnity, kUnity);
  return scaler;
}

}  // namespace

Result<CGImagePtr> makeImage(const CVPixelBuffer& buffer, int width, int height) {
  const Layout layout = layoutOf(buffer.format);
  SwsPtr scaler =
      width > 0 && height > 0 ? makeScaler(buffer, layout.format, width, height) : nullptr;
  if (!scaler) {
    return makeError(AVErrorNoImageAtTime, "The picture cannot be scaled to " +
                                               std::to_string(width) + "x" +
                                               std::to_string(height) + " pixels.");
  }
  std::array<const uint8_t*, 4> source{};
  std::array<int, 4> sourceStrides{};
  for (std::size_t i = 0; i < buffer.planes.size() && buffer.planes[i].data; ++i) {
    const int x = i > 0 ? buffer.cropLeft >> layout.chromaShiftX : buffer.cropLeft;
    const int y = i > 0 ? buffer.cropTop >> layout.chromaShiftY : buffer.cropTop;
    source[i] = buffer.planes[i].data + y * buffer.planes[i].stride + x * layout.bytesPerSample;
    sourceStrides[i] = static_cast<int>(buffer.planes[i].stride);
  }
  const std::size_t stride = static_cast<std::size_t>(width) * 4;
  std::vector<uint8_t> pixels(stride * static_cast<std::size_t>(height));
  const std::array<uint8_t*, 4> target{pixels.data()};
  const std::array<int, 4> targetStrides{static_cast<int>(stride)};
  sws_scale(scaler.get(), source.data(), sourceStrides.data(), 0, buffer.cropHeight, target.data(),
            targetStrides.data());
  return std::make_shared<const CGImage>(width, height, stride, std::move(pixels));
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
