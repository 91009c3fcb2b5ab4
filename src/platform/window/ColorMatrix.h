#pragma once

#include <cstdint>

#include "platform/coremedia/CVPixelBuffer.h"

namespace zaffo::window {

/// What turns Y, Cb, Cr into B, G, R, in fixed point for 16-bit lanes.
struct ColorMatrix {
  /// Of 8192. Taken as positive; green subtracts its two.
  int16_t luma = 0, redCr = 0, greenCb = 0, greenCr = 0, blueCb = 0;
  /// Added to each channel, in sixteenths of an 8-bit step: the black level and half a step.
  int16_t bias = 0;

  [[nodiscard]] static ColorMatrix make(CVColorMatrix matrix, CVColorRange range, int bitDepth);
};

/// Converts `count` pixels to opaque BGRA. Luma is an 8-bit value times 128; chroma likewise,
/// with its zero at 0.
void convertRow(const ColorMatrix& matrix, const int16_t* luma, const int16_t* cb,
                const int16_t* cr, uint8_t* bgra, int count);

}  // namespace zaffo::window
