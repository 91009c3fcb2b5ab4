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

/// A rational time: value / timescale seconds. Plain data; zero-initialised it is invalid.
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

[[nodiscard]] constexpr CMTime CMTimeMake(CMTimeValue value, CMTimeScale timescale) {
  return CMTime{value, timescale, timescale > 0 ? kCMTimeFlags_Valid : 0u, 0};
}
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeMakeWithEpoch(CMTimeValue value, CMTimeScale timescale,
                                                      CMTimeEpoch epoch);
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeMakeWithSeconds(double seconds,
                                                        CMTimeScale preferredTimescale);
[[nodiscard]] ZAFFO_EXPORT double CMTimeGetSeconds(CMTime time);

[[nodiscard]] constexpr bool CMTIME_IS_VALID(CMTime t) { return t.flags & kCMTimeFlags_Valid; }
[[nodiscard]] constexpr bool CMTIME_IS_INVALID(CMTime t) { return !CMTIME_IS_VALID(t); }
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

[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeAdd(CMTime a, CMTime b);
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeSubtract(CMTime a, CMTime b);
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeMultiply(CMTime time, int32_t multiplier);
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeMultiplyByFloat64(CMTime time, double multiplier);
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeMultiplyByRatio(CMTime time, int32_t multiplier,
                                                        int32_t divisor);
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeConvertScale(
    CMTime time, CMTimeScale newTimescale,
    CMTimeRoundingMethod method = CMTimeRoundingMethod::RoundHalfAwayFromZero);
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeAbsoluteValue(CMTime time);
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeMinimum(CMTime a, CMTime b);
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeMaximum(CMTime a, CMTime b);

/// -1, 0 or 1. Total order: negative infinity < numeric < positive infinity < indefinite < invalid.
[[nodiscard]] ZAFFO_EXPORT int32_t CMTimeCompare(CMTime a, CMTime b);

/// "{3003/30000 = 0.100}", "{INVALID}", "{INDEFINITE}", "{+INFINITY}", "{-INFINITY}".
[[nodiscard]] ZAFFO_EXPORT std::string CMTimeDescription(CMTime time);

inline bool operator==(CMTime a, CMTime b) { return CMTimeCompare(a, b) == 0; }
inline bool operator<(CMTime a, CMTime b) { return CMTimeCompare(a, b) < 0; }
inline bool operator>(CMTime a, CMTime b) { return CMTimeCompare(a, b) > 0; }
inline bool operator<=(CMTime a, CMTime b) { return CMTimeCompare(a, b) <= 0; }
inline bool operator>=(CMTime a, CMTime b) { return CMTimeCompare(a, b) >= 0; }
inline CMTime operator+(CMTime a, CMTime b) { return CMTimeAdd(a, b); }
inline CMTime operator-(CMTime a, CMTime b) { return CMTimeSubtract(a, b); }

}  // namespace zaffo
