#include "platform/window/ColorMatrix.h"

#include <algorithm>
#include <cmath>

namespace zaffo::window {

namespace {

struct LumaWeights {
  double red, blue;
};

LumaWeights lumaWeights(CVColorMatrix matrix) {
  switch (matrix) {
    case CVColorMatrix::BT601:
      return {0.299, 0.114};
    case CVColorMatrix::BT709:
      return {0.2126, 0.0722};
    case CVColorMatrix::BT2020:
      return {0.2627, 0.0593};
  }
  return {0.2126, 0.0722};
}

int16_t fixed(double coefficient) {
  return static_cast<int16_t>(std::lround(coefficient * 8192));
}

/// The upper half of the product: 128ths times 8192ths gives sixteenths.
int16_t multiplied(int16_t value, int16_t coefficient) {
  return static_cast<int16_t>((int32_t{value} * int32_t{coefficient}) >> 16);
}

uint8_t toByte(int16_t sixteenths) {
  return static_cast<uint8_t>(std::clamp<int16_t>(static_cast<int16_t>(sixteenths >> 4), 0, 255));
}

}  // namespace

ColorMatrix ColorMatrix::make(CVColorMatrix matrix, CVColorRange range, int bitDepth) {
  const bool full = range == CVColorRange::Full;
  // The highest code of a deep format is a little more than 255 in steps of 8 bits.
  const double highest = ((1 << bitDepth) - 1) / static_cast<double>(1 << (bitDepth - 8));
  const double lumaScale = full ? 255 / highest : 255.0 / 219;
  const double chromaScale = full ? 255 / highest : 255.0 / 224;
  const auto [red, blue] = lumaWeights(matrix);
  const double green = 1 - red - blue;

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

void convertRow(const ColorMatrix& matrix, const int16_t* luma, const int16_t* cb,
                const int16_t* cr, uint8_t* bgra, int count) {
  const ColorMatrix m = matrix;  // a copy: writing bytes could otherwise change it
  for (int i = 0; i < count; ++i) {
    const auto y = static_cast<int16_t>(multiplied(luma[i], m.luma) + m.bias);
    const auto blue = static_cast<int16_t>(y + multiplied(cb[i], m.blueCb));
    const auto green =
        static_cast<int16_t>(y - multiplied(cb[i], m.greenCb) - multiplied(cr[i], m.greenCr));
    const auto red = static_cast<int16_t>(y + multiplied(cr[i], m.redCr));
    bgra[4 * i] = toByte(blue);
    bgra[4 * i + 1] = toByte(green);
    bgra[4 * i + 2] = toByte(red);
    bgra[4 * i + 3] = 255;
  }
}

}  // namespace zaffo::window
