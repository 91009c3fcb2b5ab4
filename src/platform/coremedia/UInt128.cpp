// SPDX-License-Identifier: Apache-2.0
#include "platform/coremedia/UInt128.h"

#include <bit>

namespace zaffo {

namespace {
constexpr uint64_t lowHalf(uint64_t x) {
  return x & 0xffffffffu;
}
constexpr uint64_t highHalf(uint64_t x) {
  return x >> 32;
}
}  // namespace

UInt128 multiplyFull(uint64_t a, uint64_t b) {
  const uint64_t lowLow = lowHalf(a) * lowHalf(b);
  const uint64_t lowHigh = lowHalf(a) * highHalf(b);
  const uint64_t highLow = highHalf(a) * lowHalf(b);
  const uint64_t middle = highHalf(lowLow) + lowHalf(lowHigh) + lowHalf(highLow);
  return {highHalf(a) * highHalf(b) + highHalf(lowHigh) + highHalf(highLow) + highHalf(middle),
          (middle << 32) | lowHalf(lowLow)};
}

UInt128 shiftRightRounding(UInt128 x, int bits) {
  if (bits <= 0) return x;
  if (bits > 128) return {};
  const int last = bits - 1;  // the bit below the new lowest one decides the rounding
  const bool up = last >= 64 ? (x.high >> (last - 64)) & 1 : (x.low >> last) & 1;
  UInt128 result;
  if (bits < 64) {
    result = {x.high >> bits, (x.low >> bits) | (x.high << (64 - bits))};
  } else if (bits < 128) {
    result = {0, x.high >> (bits - 64)};
  }
  result.low += up ? 1 : 0;
  if (up && result.low == 0) ++result.high;
  return result;
}

UInt128 shiftLeft(UInt128 x, int bits) {
  if (bits == 0) return x;
  if (bits >= 64) return {x.low << (bits - 64), 0};
  return {(x.high << bits) | (x.low >> (64 - bits)), x.low << bits};
}

int bitWidth(UInt128 x) {
  return static_cast<int>(x.high != 0 ? 64 + std::bit_width(x.high) : std::bit_width(x.low));
}

UInt128Division divide(UInt128 x, uint32_t divisor) {
  uint64_t remainder = 0;
  const auto digit = [&](uint64_t half) {
    const uint64_t dividend = (remainder << 32) | half;
    remainder = dividend % divisor;
    return dividend / divisor;
  };
  const uint64_t a = digit(highHalf(x.high)), b = digit(lowHalf(x.high));
  const uint64_t c = digit(highHalf(x.low)), d = digit(lowHalf(x.low));
  return {{(a << 32) | b, (c << 32) | d}, static_cast<uint32_t>(remainder)};
}

MulDiv mulDiv(uint64_t a, uint32_t b, uint64_t divisor) {
  MulDiv result;
  for (int bit = 31; bit >= 0; --bit) {  // b from its highest bit: double, then add a
    result.quotient *= 2;
    result.remainder *= 2;
    if (result.remainder >= divisor) {
      result.remainder -= divisor;
      ++result.quotient;
    }
    if (((b >> bit) & 1) == 0) continue;
    if (result.remainder >= divisor - a) {
      result.remainder -= divisor - a;
      ++result.quotient;
    } else {
      result.remainder += a;
    }
  }
  return result;
}

}  // namespace zaffo
