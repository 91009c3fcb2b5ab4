// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

#include "platform/coremedia/CMTime.h"

namespace zaffo {

/// A time without loss: sign, whole seconds and a proper fraction of a second. What CMTime's
/// operations compute in before they choose a timescale. Thread: any.
struct ExactSeconds {
  bool negative = false;
  uint64_t whole = 0;  ///< UINT64_MAX stands for anything too great
  uint64_t numerator = 0;
  uint64_t denominator = 1;  ///< greater than the numerator, at most 2^62
};

/// `time` is numeric.
[[nodiscard]] ExactSeconds exactSeconds(CMTime time);

/// Both denominators are at most 2^31.
[[nodiscard]] ExactSeconds addExact(const ExactSeconds& a, const ExactSeconds& b);

/// x * |multiplier| / divisor with the sign of x; the denominator of x and `divisor` are at most
/// 2^31, and `divisor` is not 0.
[[nodiscard]] ExactSeconds multiplyExact(const ExactSeconds& x, uint32_t multiplier,
                                         uint32_t divisor);

struct ScaledValue {
  CMTimeValue value = 0;
  bool rounded = false;
};
/// x in units of 1/timescale; nullopt when that does not fit 64 bits. `method` is any but
/// QuickTime, which depends on where x comes from.
[[nodiscard]] std::optional<ScaledValue> scaleExact(const ExactSeconds& x, CMTimeScale timescale,
                                                    CMTimeRoundingMethod method);

/// The smallest timescale at which x is exact; may be more than a CMTimeScale holds.
[[nodiscard]] uint64_t exactTimescale(const ExactSeconds& x);

/// x as a CMTime at `timescale`, halved until the value fits, or an infinity.
[[nodiscard]] CMTime makeTime(const ExactSeconds& x, CMTimeScale timescale, bool alreadyRounded,
                              CMTimeEpoch epoch);

}  // namespace zaffo
