// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/coremedia/CMTime.h"

namespace zaffo {

/// The half-open range [start, start + duration). Plain data; zero-initialised it is invalid.
/// A range is valid when both times are, and the duration is not negative and of epoch 0.
/// Thread: any.
struct CMTimeRange {
  CMTime start;
  CMTime duration;
};

inline constexpr CMTimeRange kCMTimeRangeInvalid{};
inline constexpr CMTimeRange kCMTimeRangeZero{kCMTimeZero, kCMTimeZero};

[[nodiscard]] ZAFFO_EXPORT CMTimeRange CMTimeRangeMake(CMTime start, CMTime duration);
/// [start, end); not a valid range when `end` lies before `start`.
[[nodiscard]] ZAFFO_EXPORT CMTimeRange CMTimeRangeFromTimeToTime(CMTime start, CMTime end);
/// The first time after the range.
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeRangeGetEnd(CMTimeRange range);
[[nodiscard]] ZAFFO_EXPORT bool CMTIMERANGE_IS_VALID(CMTimeRange range);
/// Valid, of duration zero.
[[nodiscard]] ZAFFO_EXPORT bool CMTIMERANGE_IS_EMPTY(CMTimeRange range);
/// Ranges that are not valid equal each other.
[[nodiscard]] ZAFFO_EXPORT bool CMTimeRangeEqual(CMTimeRange a, CMTimeRange b);
/// Whether start <= time < end. False for a time that is not numeric.
[[nodiscard]] ZAFFO_EXPORT bool CMTimeRangeContainsTime(CMTimeRange range, CMTime time);
/// Whether `inner` neither starts before nor ends after `outer`.
[[nodiscard]] ZAFFO_EXPORT bool CMTimeRangeContainsTimeRange(CMTimeRange outer, CMTimeRange inner);
/// What both have; kCMTimeRangeZero when that is nothing, invalid when either range is.
[[nodiscard]] ZAFFO_EXPORT CMTimeRange CMTimeRangeGetIntersection(CMTimeRange a, CMTimeRange b);
/// The smallest range with both in it; invalid when either range is.
[[nodiscard]] ZAFFO_EXPORT CMTimeRange CMTimeRangeGetUnion(CMTimeRange a, CMTimeRange b);
/// `time`, or the start or the end of the range when it lies before or after it.
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeClampToRange(CMTime time, CMTimeRange range);
/// "{{0/1 = 0.000}, {3/1 = 3.000}}": start and duration; "{INVALID}".
[[nodiscard]] ZAFFO_EXPORT std::string CMTimeRangeDescription(CMTimeRange range);

inline bool operator==(CMTimeRange a, CMTimeRange b) {
  return CMTimeRangeEqual(a, b);
}

}  // namespace zaffo
