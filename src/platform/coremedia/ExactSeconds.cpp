// SPDX-License-Identifier: Apache-2.0
#include "platform/coremedia/ExactSeconds.h"

#include <limits>
#include <numeric>

#include "platform/coremedia/UInt128.h"

namespace zaffo {

namespace {

constexpr uint64_t kTooGreat = std::numeric_limits<uint64_t>::max();

uint64_t addSaturating(uint64_t a, uint64_t b) {
  return a > kTooGreat - b ? kTooGreat : a + b;
}

uint64_t multiplySaturating(uint64_t a, uint64_t b) {
  return b != 0 && a > kTooGreat / b ? kTooGreat : a * b;
}

uint64_t magnitude(int64_t value) {
  return value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
}

/// Whether the magnitude is rounded up when `remainder` of `denominator` is left over.
bool roundsMagnitudeUp(bool negative, uint64_t remainder, uint64_t denominator,
                       CMTimeRoundingMethod method) {
  if (remainder == 0) return false;
  switch (method) {
    case CMTimeRoundingMethod::RoundHalfAwayFromZero:
    case CMTimeRoundingMethod::QuickTime:
      break;
    case CMTimeRoundingMethod::RoundTowardZero:
      return false;
    case CMTimeRoundingMethod::RoundAwayFromZero:
      return true;
    case CMTimeRoundingMethod::RoundTowardPositiveInfinity:
      return !negative;
    case CMTimeRoundingMethod::RoundTowardNegativeInfinity:
      return negative;
  }
  return remainder >= denominator - remainder;
}

ExactSeconds addMagnitudes(ExactSeconds a, const ExactSeconds& b) {
  a.whole = addSaturating(a.whole, b.whole);
  a.numerator += b.numerator;
  if (a.numerator >= a.denominator) {
    a.numerator -= a.denominator;
    a.whole = addSaturating(a.whole, 1);
  }
  return a;
}

ExactSeconds subtractMagnitudes(ExactSeconds a, const ExactSeconds& b) {
  const bool aIsLess = a.whole != b.whole ? a.whole < b.whole : a.numerator < b.numerator;
  if (aIsLess) return subtractMagnitudes(b, a);
  a.whole -= b.whole;
  if (a.numerator < b.numerator) {
    a.numerator += a.denominator;
    --a.whole;
  }
  a.numerator -= b.numerator;
  return a;
}

}  // namespace

ExactSeconds exactSeconds(CMTime time) {
  const uint64_t value = magnitude(time.value);
  const auto timescale = static_cast<uint64_t>(time.timescale);
  return {time.value < 0, value / timescale, value % timescale, timescale};
}

ExactSeconds addExact(const ExactSeconds& a, const ExactSeconds& b) {
  const uint64_t common = std::lcm(a.denominator, b.denominator);
  ExactSeconds x = a, y = b;
  x.numerator *= common / a.denominator;
  y.numerator *= common / b.denominator;
  x.denominator = y.denominator = common;
  return x.negative == y.negative ? addMagnitudes(x, y) : subtractMagnitudes(x, y);
}

ExactSeconds multiplyExact(const ExactSeconds& x, uint32_t multiplier, uint32_t divisor) {
  // Seconds that the divisor divides are multiplied as they are; the rest, less than divisor
  // seconds, is a proper fraction of them.
  const uint64_t denominator = x.denominator * divisor;
  const uint64_t rest = (x.whole % divisor) * x.denominator + x.numerator;
  const MulDiv product = mulDiv(rest, multiplier, denominator);
  const uint64_t whole = multiplySaturating(x.whole / divisor, multiplier);
  return {x.negative, addSaturating(whole, product.quotient), product.remainder, denominator};
}

std::optional<ScaledValue> scaleExact(const ExactSeconds& x, CMTimeScale timescale,
                                      CMTimeRoundingMethod method) {
  const auto scale = static_cast<uint32_t>(timescale);
  if (x.whole > kTooGreat / scale) return std::nullopt;
  const MulDiv fraction = mulDiv(x.numerator, scale, x.denominator);
  uint64_t value = addSaturating(x.whole * scale, fraction.quotient);
  if (roundsMagnitudeUp(x.negative, fraction.remainder, x.denominator, method)) {
    value = addSaturating(value, 1);
  }
  constexpr auto kMost = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  if (value > kMost + (x.negative ? 1 : 0)) return std::nullopt;
  return ScaledValue{static_cast<int64_t>(x.negative ? 0 - value : value), fraction.remainder != 0};
}

uint64_t exactTimescale(const ExactSeconds& x) {
  return x.denominator / std::gcd(x.numerator, x.denominator);
}

CMTime makeTime(const ExactSeconds& x, CMTimeScale timescale, bool alreadyRounded,
                CMTimeEpoch epoch) {
  for (CMTimeScale scale = timescale; scale >= 1; scale /= 2) {
    const auto scaled = scaleExact(x, scale, CMTimeRoundingMethod::RoundHalfAwayFromZero);
    if (!scaled) continue;
    const bool rounded = scaled->rounded || alreadyRounded;
    const uint32_t flags = kCMTimeFlags_Valid | (rounded ? kCMTimeFlags_HasBeenRounded : 0u);
    return {scaled->value, scale, flags, epoch};
  }
  return x.negative ? kCMTimeNegativeInfinity : kCMTimePositiveInfinity;
}

}  // namespace zaffo
