// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>

#include "platform/coremedia/CMTime.h"

namespace zaffo {

/// Something that tells a time that moves at a rate near 1 and never goes back. Implementations
/// answer at once and call nothing that could call them or a timebase on them. Thread: any.
class ZAFFO_EXPORT CMClock {
 public:
  virtual ~CMClock() = default;

  /// The present time of this clock, with a timescale of nanoseconds.
  [[nodiscard]] CMTime time() const;

  /// This clock's time, in nanoseconds, at a host time (TimeSource) in nanoseconds.
  [[nodiscard]] virtual int64_t nanosecondsAtHostTime(int64_t hostNanoseconds) const = 0;

  /// The host time at which this clock will show `nanoseconds`, should it keep its present rate;
  /// INT64_MAX when that is never.
  [[nodiscard]] virtual int64_t hostTimeAtNanoseconds(int64_t nanoseconds) const = 0;
};

/// The monotonic clock of the machine (TimeSource).
[[nodiscard]] ZAFFO_EXPORT const std::shared_ptr<CMClock>& CMClockGetHostTimeClock();

}  // namespace zaffo
