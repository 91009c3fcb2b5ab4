// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/coremedia/CVPixelBuffer.h"

namespace zaffo {

/// What turns Y, Cb, Cr into B, G, R, in fixed point that compilers turn into 16-bit lanes of
/// vector code. Samples have 7 fractional bits on the scale of 8-bit video, coefficients 13; the
/// upper half of their product has 4, enough for a sum of three to be within 1 of the exact one.
struct ColorMatrix {
  /// Of 8192. Taken as positive; green subtracts its two.
  int16_t luma = 0, redCr = 0, greenCb = 0, greenCr = 0, blueCb = 0;
  /// Added to each channel, in sixteenths of an 8-bit step: the black level and half a step.
  int16_t bias = 0;

  [[nodiscard]] static ColorMatrix make(CVColorMatrix matrix, CVColorRange range, int bitDepth);
};

/// Converts `count` pixels to opaque BGRA. Luma is an 8-bit value times 128; chroma likewise,
/// with its zero at 0.
inline void convertRow(const ColorMatrix& matrix, const int16_t* luma, const int16_t* cb,
                       const int16_t* cr, uint8_t* bgra, int count) {
  const auto multiplied = [](int16_t value, int16_t coefficient) {
    return static_cast<int16_t>((int32_t{value} * int32_t{coefficient}) >> 16);
  };
  const auto component = [](int sixteenths) {
    const auto value = static_cast<int16_t>(static_cast<int16_t>(sixteenths) >> 4);
    return std::min<int16_t>(std::max<int16_t>(value, 0), 255);
  };
  const ColorMatrix m = matrix;  // a copy: writing pixels could otherwise change it
  // Tiles of a constant length over arrays that cannot alias: their loops become vector code, and
  // whole pixels are twice as quick to write as bytes.
  constexpr int kTile = 64;
  std::array<int16_t, kTile> blue, green, red;
  std::array<uint32_t, kTile> pixels;
  const auto convert = [&](int first, int length) {
    for (int i = 0; i < length; ++i) {
      const int16_t u = cb[first + i], v = cr[first + i];
      const auto y = static_cast<int16_t>(multiplied(luma[first + i], m.luma) + m.bias);
      const auto at = static_cast<std::size_t>(i);
      blue[at] = component(y + multiplied(u, m.blueCb));
      green[at] = component(y - multiplied(u, m.greenCb) - multiplied(v, m.greenCr));
      red[at] = component(y + multiplied(v, m.redCr));
    }
    for (std::size_t i = 0; i < static_cast<std::size_t>(length); ++i) {
      pixels[i] = static_cast<uint32_t>(blue[i]) | static_cast<uint32_t>(green[i]) << 8 |
                  static_cast<uint32_t>(red[i]) << 16 | 0xff000000u;
    }
    std::memcpy(bgra + std::ptrdiff_t{4} * first, pixels.data(),
                sizeof(uint32_t) * static_cast<std::size_t>(length));
  };
  int first = 0;
  for (; first + kTile <= count; first += kTile) convert(first, kTile);
  if (first < count) convert(first, count - first);
}

inline ColorMatrix ColorMatrix::make(CVColorMatrix matrix, CVColorRange range, int bitDepth) {
  double red = 0.2126, blue = 0.0722;
  if (matrix == CVColorMatrix::BT601) red = 0.299, blue = 0.114;
  if (matrix == CVColorMatrix::BT2020) red = 0.2627, blue = 0.0593;
  const double green = 1 - red - blue;
  const bool full = range == CVColorRange::Full;
  // The highest code of a deep format is a little more than 255 in steps of 8 bits.
  const double highest = ((1 << bitDepth) - 1) / static_cast<double>(1 << (bitDepth - 8));
  const double lumaScale = full ? 255 / highest : 255.0 / 219;
  const double chromaScale = full ? 255 / highest : 255.0 / 224;
  const auto fixed = [](double x) { return static_cast<int16_t>(std::lround(x * 8192)); };

  ColorMatrix result;
  result.luma = fixed(lumaScale);
  result.redCr = fixed(2 * (1 - red) * chromaScale);
  result.blueCb = fixed(2 * (1 - blue) * chromaScale);
  result.greenCb = fixed(2 * blue * (1 - blue) / green * chromaScale);
  result.greenCr = fixed(2 * red * (1 - red) / green * chromaScale);
  const double black = full ? 0 : 16 * lumaScale;
  // Products are rounded down, which costs half a sixteenth each: one is given back.
  result.bias = static_cast<int16_t>(std::lround(-black * 16) + 8 + 1);
  return result;
}

}  // namespace zaffo
