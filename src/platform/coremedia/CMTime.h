// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "platform/Export.h"

namespace zaffo {

using CMTimeValue = int64_t;
using CMTimeScale = int32_t;
using CMTimeEpoch = int64_t;

enum CMTimeFlags : uint32_t {
  kCMTimeFlags_Valid = 1u << 0,
  kCMTimeFlags_HasBeenRounded = 1u << 1,
  kCMTimeFlags_PositiveInfinity = 1u << 2,
  kCMTimeFlags_NegativeInfinity = 1u << 3,
  kCMTimeFlags_Indefinite = 1u << 4,
  kCMTimeFlags_ImpliedValueFlagsMask =
      kCMTimeFlags_PositiveInfinity | kCMTimeFlags_NegativeInfinity | kCMTimeFlags_Indefinite,
};

inline constexpr CMTimeScale kCMTimeMaxTimescale = 0x7fffffff;

/// A rational time: value / timescale seconds, timescale 1 or more. Plain data; zero-initialised it
/// is invalid. A value with kCMTimeFlags_Valid whose timescale is not positive is taken for
/// invalid.
///
/// The arithmetic below never wraps and never fails. Common to all of it:
/// - A result that is not exact is rounded to nearest, halves away from zero, and carries
///   kCMTimeFlags_HasBeenRounded; so does every result of an operand that carries it.
/// - A value that does not fit 64 bits has its timescale halved until it does; when it does not
///   even fit at timescale 1, the result is the infinity of its sign.
/// - An invalid operand gives an invalid result; of valid operands an infinite one gives an
///   infinity, and an indefinite one otherwise gives kCMTimeIndefinite.
/// - Epochs tell apart the rounds of a loop whose length is unknown. Epoch 0 is that of durations.
/// Thread: any.
struct CMTime {
  CMTimeValue value = 0;
  CMTimeScale timescale = 0;
  uint32_t flags = 0;
  CMTimeEpoch epoch = 0;
};

inline constexpr CMTime kCMTimeInvalid{};
inline constexpr CMTime kCMTimeIndefinite{0, 0, kCMTimeFlags_Valid | kCMTimeFlags_Indefinite, 0};
inline constexpr CMTime kCMTimePositiveInfinity{
    0, 0, kCMTimeFlags_Valid | kCMTimeFlags_PositiveInfinity, 0};
inline constexpr CMTime kCMTimeNegativeInfinity{
    0, 0, kCMTimeFlags_Valid | kCMTimeFlags_NegativeInfinity, 0};
inline constexpr CMTime kCMTimeZero{0, 1, kCMTimeFlags_Valid, 0};

enum class CMTimeRoundingMethod {
  RoundHalfAwayFromZero = 1,  ///< the default
  RoundTowardZero = 2,
  RoundAwayFromZero = 3,
  QuickTime = 4,  ///< toward zero when the timescale shrinks, away from zero when it grows
  RoundTowardPositiveInfinity = 5,
  RoundTowardNegativeInfinity = 6,
};

/// Invalid when `timescale` is not positive. Epoch 0.
[[nodiscard]] constexpr CMTime CMTimeMake(CMTimeValue value, CMTimeScale timescale) {
  return CMTime{value, timescale, timescale > 0 ? kCMTimeFlags_Valid : 0u, 0};
}
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeMakeWithEpoch(CMTimeValue value, CMTimeScale timescale,
                                                      CMTimeEpoch epoch);

/// The time nearest to `seconds` at the timescale; marked as rounded unless CMTimeGetSeconds gives
/// `seconds` back. An infinity for an infinity; invalid for NaN or a timescale that is not
/// positive.
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeMakeWithSeconds(double seconds,
                                                        CMTimeScale preferredTimescale);

/// Infinities become those of double; NaN for invalid and indefinite times.
[[nodiscard]] ZAFFO_EXPORT double CMTimeGetSeconds(CMTime time);

[[nodiscard]] constexpr bool CMTIME_IS_VALID(CMTime t) {
  return t.flags & kCMTimeFlags_Valid;
}
[[nodiscard]] constexpr bool CMTIME_IS_INVALID(CMTime t) {
  return !CMTIME_IS_VALID(t);
}
[[nodiscard]] constexpr bool CMTIME_IS_INDEFINITE(CMTime t) {
  return CMTIME_IS_VALID(t) && (t.flags & kCMTimeFlags_Indefinite);
}
[[nodiscard]] constexpr bool CMTIME_IS_POSITIVE_INFINITY(CMTime t) {
  return CMTIME_IS_VALID(t) && (t.flags & kCMTimeFlags_PositiveInfinity);
}
[[nodiscard]] constexpr bool CMTIME_IS_NEGATIVE_INFINITY(CMTime t) {
  return CMTIME_IS_VALID(t) && (t.flags & kCMTimeFlags_NegativeInfinity);
}
[[nodiscard]] constexpr bool CMTIME_IS_NUMERIC(CMTime t) {
  return (t.flags & (kCMTimeFlags_Valid | kCMTimeFlags_ImpliedValueFlagsMask)) ==
         kCMTimeFlags_Valid;
}
[[nodiscard]] constexpr bool CMTIME_HAS_BEEN_ROUNDED(CMTime t) {
  return CMTIME_IS_NUMERIC(t) && (t.flags & kCMTimeFlags_HasBeenRounded);
}

/// Exact at the least common multiple of the timescales; rounded at kCMTimeMaxTimescale when that
/// is greater than it. Opposite infinities, and different epochs neither of which is 0, give an
/// invalid time; otherwise the result has the epoch that is not 0.
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeAdd(CMTime a, CMTime b);

/// As CMTimeAdd, infinities of one sign giving an invalid time. The difference of two times of one
/// epoch is a duration: its epoch is 0.
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeSubtract(CMTime a, CMTime b);

/// At the timescale of `time`. Zero times an infinity is invalid.
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeMultiply(CMTime time, int32_t multiplier);

/// At the timescale of `time` when the product, computed in double precision, is whole there;
/// rounded at that timescale doubled until it is at least 65536, if that fits, otherwise. Invalid
/// for a NaN and for zero times an infinity, an infinity for an infinite multiplier.
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeMultiplyByFloat64(CMTime time, double multiplier);

/// time * multiplier / divisor, exact where a timescale allows it: the time's own, else its
/// smallest multiple, else any that does; rounded at kCMTimeMaxTimescale otherwise. Invalid for
/// divisor 0 and for zero times an infinity.
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeMultiplyByRatio(CMTime time, int32_t multiplier,
                                                        int32_t divisor);

/// The same time at another timescale, rounded as told. What does not fit is an infinity; a new
/// timescale that is not positive gives an invalid time. Times that are not numeric stay as they
/// are. QuickTime never rounds a negative time to 0: it gives -1.
[[nodiscard]] ZAFFO_EXPORT CMTime
CMTimeConvertScale(CMTime time, CMTimeScale newTimescale,
                   CMTimeRoundingMethod method = CMTimeRoundingMethod::RoundHalfAwayFromZero);

[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeAbsoluteValue(CMTime time);

/// The first in the order of CMTimeCompare; `a` when they are equal.
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeMinimum(CMTime a, CMTime b);
/// The last in the order of CMTimeCompare; `a` when they are equal.
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeMaximum(CMTime a, CMTime b);

/// -1, 0 or 1. Total order: negative infinity < numeric < indefinite < positive infinity < invalid.
/// Numeric times compare by epoch first, then exactly by value whatever their timescales.
[[nodiscard]] ZAFFO_EXPORT int32_t CMTimeCompare(CMTime a, CMTime b);

/// "{3003/30000 = 0.100}", "{INVALID}", "{INDEFINITE}", "{+INFINITY}", "{-INFINITY}". A rounded
/// time and an epoch other than 0 are told: "{1/3 = 0.333, rounded, epoch 2}".
[[nodiscard]] ZAFFO_EXPORT std::string CMTimeDescription(CMTime time);

inline bool operator==(CMTime a, CMTime b) {
  return CMTimeCompare(a, b) == 0;
}
inline bool operator<(CMTime a, CMTime b) {
  return CMTimeCompare(a, b) < 0;
}
inline bool operator>(CMTime a, CMTime b) {
  return CMTimeCompare(a, b) > 0;
}
inline bool operator<=(CMTime a, CMTime b) {
  return CMTimeCompare(a, b) <= 0;
}
inline bool operator>=(CMTime a, CMTime b) {
  return CMTimeCompare(a, b) >= 0;
}
inline CMTime operator+(CMTime a, CMTime b) {
  return CMTimeAdd(a, b);
}
inline CMTime operator-(CMTime a, CMTime b) {
  return CMTimeSubtract(a, b);
}

}  // namespace zaffo
