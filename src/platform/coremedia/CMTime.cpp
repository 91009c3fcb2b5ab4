// SPDX-License-Identifier: Apache-2.0
#include "platform/coremedia/CMTime.h"

#include <cmath>
#include <cstdio>
#include <limits>
#include <numeric>
#include <optional>

#include "platform/coremedia/ExactSeconds.h"
#include "platform/coremedia/UInt128.h"

namespace zaffo {

namespace {

enum class Kind { NegativeInfinity, Numeric, Indefinite, PositiveInfinity, Invalid };  // in order

Kind kindOf(CMTime time) {
  if (!CMTIME_IS_VALID(time)) return Kind::Invalid;
  if (CMTIME_IS_POSITIVE_INFINITY(time)) return Kind::PositiveInfinity;
  if (CMTIME_IS_NEGATIVE_INFINITY(time)) return Kind::NegativeInfinity;
  if (CMTIME_IS_INDEFINITE(time)) return Kind::Indefinite;
  return time.timescale > 0 ? Kind::Numeric : Kind::Invalid;
}

CMTime infinity(bool negative) {
  return negative ? kCMTimeNegativeInfinity : kCMTimePositiveInfinity;
}

bool isInfinite(Kind kind) {
  return kind == Kind::PositiveInfinity || kind == Kind::NegativeInfinity;
}

uint32_t magnitude(int32_t x) {
  return x < 0 ? 0 - static_cast<uint32_t>(x) : static_cast<uint32_t>(x);
}

CMTimeScale clampToTimescale(uint64_t scale) {
  return static_cast<CMTimeScale>(std::min<uint64_t>(scale, kCMTimeMaxTimescale));
}

/// The sum when one of the two is not numeric.
CMTime addSpecial(Kind a, Kind b) {
  if (a == Kind::Invalid || b == Kind::Invalid) return kCMTimeInvalid;
  if (isInfinite(a) && isInfinite(b) && a != b) return kCMTimeInvalid;
  if (isInfinite(a) || isInfinite(b)) {
    return infinity((isInfinite(a) ? a : b) == Kind::NegativeInfinity);
  }
  return kCMTimeIndefinite;
}

/// The product when the time is not numeric or the multiplier not finite. The sign is -1, 0 or 1.
CMTime multiplySpecial(CMTime time, int multiplierSign) {
  const Kind kind = kindOf(time);
  if (kind == Kind::Invalid || kind == Kind::Indefinite) {
    return kind == Kind::Invalid ? kCMTimeInvalid : kCMTimeIndefinite;
  }
  const bool zero = multiplierSign == 0 || (kind == Kind::Numeric && time.value == 0);
  if (zero) return kCMTimeInvalid;
  const bool negative = kind == Kind::NegativeInfinity || (kind == Kind::Numeric && time.value < 0);
  return infinity(negative != (multiplierSign < 0));
}

/// a + b, or a - b; none where that might be too great for a value.
std::optional<CMTimeValue> sumOfValues(CMTimeValue a, CMTimeValue b, bool negateB) {
  constexpr CMTimeValue kRoom = std::numeric_limits<CMTimeValue>::max() / 2;
  if (a > kRoom || a < -kRoom || b > kRoom || b < -kRoom) return std::nullopt;
  return negateB ? a - b : a + b;
}

CMTime sum(CMTime a, CMTime b, bool negateB, CMTimeEpoch epoch) {
  if (a.timescale == b.timescale) {
    if (const auto value = sumOfValues(a.value, b.value, negateB)) {
      const uint32_t rounded = (a.flags | b.flags) & kCMTimeFlags_HasBeenRounded;
      return {*value, a.timescale, kCMTimeFlags_Valid | rounded, epoch};
    }
  }
  const uint64_t common = std::lcm(static_cast<uint64_t>(a.timescale),  //
                                   static_cast<uint64_t>(b.timescale));
  ExactSeconds second = exactSeconds(b);
  second.negative = second.negative != negateB;
  const bool rounded = CMTIME_HAS_BEEN_ROUNDED(a) || CMTIME_HAS_BEEN_ROUNDED(b);
  return makeTime(addExact(exactSeconds(a), second), clampToTimescale(common), rounded, epoch);
}

bool epochsClash(CMTime a, CMTime b) {
  return a.epoch != 0 && b.epoch != 0 && a.epoch != b.epoch;
}

/// |value| * |multiplier| * 2^doublings at `timescale`, rounded to nearest. `multiplier` is finite.
CMTime multiplyByFinite(CMTime time, double multiplier, CMTimeScale timescale, int doublings,
                        bool rounded) {
  int exponent = 0;
  const double fraction = std::frexp(std::fabs(multiplier), &exponent);
  const auto mantissa = static_cast<uint64_t>(std::ldexp(fraction, 53));
  const uint64_t value =
      time.value < 0 ? 0 - static_cast<uint64_t>(time.value) : static_cast<uint64_t>(time.value);
  const bool negative = (time.value < 0) != (multiplier < 0);
  const UInt128 product = multiplyFull(value, mantissa);
  const int shift = exponent - 53 + doublings;
  if (product == UInt128{}) return {0, timescale, time.flags, time.epoch};
  if (shift > 0 && bitWidth(product) + shift > 127) return infinity(negative);
  const UInt128 ticks = shift > 0 ? shiftLeft(product, shift) : shiftRightRounding(product, -shift);
  const UInt128Division seconds = divide(ticks, static_cast<uint32_t>(timescale));
  if (seconds.quotient.high != 0) return infinity(negative);
  const ExactSeconds exact{negative, seconds.quotient.low, seconds.remainder,
                           static_cast<uint64_t>(timescale)};
  return makeTime(exact, timescale, rounded, time.epoch);
}

bool isWholeProduct(CMTime time, double multiplier, int doublings) {
  constexpr double kExactInDouble = 9007199254740992.0;  // 2^53
  const double product = std::ldexp(static_cast<double>(time.value) * multiplier, doublings);
  return std::fabs(product) < kExactInDouble && product == std::rint(product);
}

}  // namespace

CMTime CMTimeMakeWithEpoch(CMTimeValue value, CMTimeScale timescale, CMTimeEpoch epoch) {
  CMTime time = CMTimeMake(value, timescale);
  time.epoch = epoch;
  return time;
}

CMTime CMTimeMakeWithSeconds(double seconds, CMTimeScale preferredTimescale) {
  if (std::isnan(seconds) || preferredTimescale <= 0) return kCMTimeInvalid;
  if (std::isinf(seconds)) return infinity(seconds < 0);
  const CMTime second = CMTimeMake(preferredTimescale, preferredTimescale);
  CMTime time = multiplyByFinite(second, seconds, preferredTimescale, 0, false);
  if (kindOf(time) != Kind::Numeric) return time;
  time.flags = kCMTimeFlags_Valid;
  if (CMTimeGetSeconds(time) != seconds) time.flags |= kCMTimeFlags_HasBeenRounded;
  return time;
}

double CMTimeGetSeconds(CMTime time) {
  switch (kindOf(time)) {
    case Kind::Numeric:
      return static_cast<double>(time.value) / time.timescale;
    case Kind::PositiveInfinity:
      return std::numeric_limits<double>::infinity();
    case Kind::NegativeInfinity:
      return -std::numeric_limits<double>::infinity();
    case Kind::Indefinite:
    case Kind::Invalid:
      break;
  }
  return std::numeric_limits<double>::quiet_NaN();
}

CMTime CMTimeAdd(CMTime a, CMTime b) {
  const Kind kindA = kindOf(a), kindB = kindOf(b);
  if (kindA != Kind::Numeric || kindB != Kind::Numeric) return addSpecial(kindA, kindB);
  if (epochsClash(a, b)) return kCMTimeInvalid;
  return sum(a, b, false, a.epoch != 0 ? a.epoch : b.epoch);
}

CMTime CMTimeSubtract(CMTime a, CMTime b) {
  const Kind kindA = kindOf(a);
  Kind kindB = kindOf(b);
  if (kindA != Kind::Numeric || kindB != Kind::Numeric) {
    if (isInfinite(kindB)) {
      kindB = kindB == Kind::NegativeInfinity ? Kind::PositiveInfinity : Kind::NegativeInfinity;
    }
    return addSpecial(kindA, kindB);
  }
  if (epochsClash(a, b)) return kCMTimeInvalid;
  return sum(a, b, true, a.epoch == b.epoch ? 0 : a.epoch != 0 ? a.epoch : b.epoch);
}

CMTime CMTimeMultiply(CMTime time, int32_t multiplier) {
  return CMTimeMultiplyByRatio(time, multiplier, 1);
}

CMTime CMTimeMultiplyByFloat64(CMTime time, double multiplier) {
  if (std::isnan(multiplier)) return kCMTimeInvalid;
  if (kindOf(time) != Kind::Numeric || std::isinf(multiplier)) {
    return multiplySpecial(time, (multiplier > 0) - (multiplier < 0));
  }
  constexpr CMTimeScale kFineTimescale = 65536;
  CMTimeScale timescale = time.timescale;
  int doublings = 0;
  if (!isWholeProduct(time, multiplier, 0)) {
    constexpr double kRoom = 4611686018427387904.0;  // 2^62
    double ticks = std::fabs(static_cast<double>(time.value) * multiplier);
    for (; timescale < kFineTimescale && ticks < kRoom / 2; timescale *= 2, ticks *= 2) ++doublings;
  }
  const bool rounded =
      CMTIME_HAS_BEEN_ROUNDED(time) || !isWholeProduct(time, multiplier, doublings);
  return multiplyByFinite(time, multiplier, timescale, doublings, rounded);
}

CMTime CMTimeMultiplyByRatio(CMTime time, int32_t multiplier, int32_t divisor) {
  if (kindOf(time) == Kind::Invalid || divisor == 0) return kCMTimeInvalid;
  const int sign = ((multiplier > 0) - (multiplier < 0)) * (divisor < 0 ? -1 : 1);
  if (kindOf(time) != Kind::Numeric) return multiplySpecial(time, sign);
  ExactSeconds product =
      multiplyExact(exactSeconds(time), magnitude(multiplier), magnitude(divisor));
  product.negative = product.negative != (sign < 0);
  const uint64_t needed = exactTimescale(product);
  // Of what is exact, the time's own timescale or a multiple of it is the least surprise.
  uint64_t timescale = needed;
  if (needed <= kCMTimeMaxTimescale) {
    timescale = std::lcm(needed, static_cast<uint64_t>(time.timescale));
    if (timescale > kCMTimeMaxTimescale) timescale = needed;
  }
  return makeTime(product, clampToTimescale(timescale), CMTIME_HAS_BEEN_ROUNDED(time), time.epoch);
}

CMTime CMTimeConvertScale(CMTime time, CMTimeScale newTimescale, CMTimeRoundingMethod method) {
  if (kindOf(time) == Kind::Invalid || newTimescale <= 0) return kCMTimeInvalid;
  if (kindOf(time) != Kind::Numeric) return time;
  const bool quickTime = method == CMTimeRoundingMethod::QuickTime;
  if (quickTime) {
    method = newTimescale < time.timescale ? CMTimeRoundingMethod::RoundTowardZero
                                           : CMTimeRoundingMethod::RoundAwayFromZero;
  }
  const auto scaled = scaleExact(exactSeconds(time), newTimescale, method);
  if (!scaled) return infinity(time.value < 0);
  CMTime result{scaled->value, newTimescale, time.flags, time.epoch};
  if (quickTime && time.value < 0 && result.value == 0) result.value = -1;
  if (scaled->rounded) result.flags |= kCMTimeFlags_HasBeenRounded;
  return result;
}

CMTime CMTimeAbsoluteValue(CMTime time) {
  if (kindOf(time) == Kind::NegativeInfinity) return kCMTimePositiveInfinity;
  if (kindOf(time) != Kind::Numeric || time.value >= 0) return time;
  return CMTimeMultiply(time, -1);
}

CMTime CMTimeMinimum(CMTime a, CMTime b) {
  return CMTimeCompare(b, a) < 0 ? b : a;
}

CMTime CMTimeMaximum(CMTime a, CMTime b) {
  return CMTimeCompare(b, a) > 0 ? b : a;
}

int32_t CMTimeCompare(CMTime a, CMTime b) {
  const Kind kindA = kindOf(a), kindB = kindOf(b);
  if (kindA != kindB) return kindA < kindB ? -1 : 1;
  if (kindA != Kind::Numeric) return 0;
  if (a.epoch != b.epoch) return a.epoch < b.epoch ? -1 : 1;
  if (a.timescale == b.timescale || a.value == 0 || b.value == 0) {
    return (a.value > b.value) - (a.value < b.value);
  }
  const ExactSeconds difference = [&] {
    ExactSeconds minusB = exactSeconds(b);
    minusB.negative = !minusB.negative;
    return addExact(exactSeconds(a), minusB);
  }();
  if (difference.whole == 0 && difference.numerator == 0) return 0;
  return difference.negative ? -1 : 1;
}

std::string CMTimeDescription(CMTime time) {
  switch (kindOf(time)) {
    case Kind::Invalid:
      return "{INVALID}";
    case Kind::Indefinite:
      return "{INDEFINITE}";
    case Kind::PositiveInfinity:
      return "{+INFINITY}";
    case Kind::NegativeInfinity:
      return "{-INFINITY}";
    case Kind::Numeric:
      break;
  }
  char seconds[64];
  std::snprintf(seconds, sizeof seconds, "%.3f", CMTimeGetSeconds(time));
  std::string text =
      "{" + std::to_string(time.value) + "/" + std::to_string(time.timescale) + " = " + seconds;
  if (CMTIME_HAS_BEEN_ROUNDED(time)) text += ", rounded";
  if (time.epoch != 0) text += ", epoch " + std::to_string(time.epoch);
  return text + "}";
}

}  // namespace zaffo
