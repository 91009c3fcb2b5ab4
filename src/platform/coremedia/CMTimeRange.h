#pragma once

#include "platform/coremedia/CMTime.h"

namespace zaffo {

/// The half-open range [start, start + duration). Plain data; zero-initialised it is invalid.
struct CMTimeRange {
  CMTime start;
  CMTime duration;
};

inline constexpr CMTimeRange kCMTimeRangeInvalid{};
inline constexpr CMTimeRange kCMTimeRangeZero{kCMTimeZero, kCMTimeZero};

[[nodiscard]] ZAFFO_EXPORT CMTimeRange CMTimeRangeMake(CMTime start, CMTime duration);
[[nodiscard]] ZAFFO_EXPORT CMTimeRange CMTimeRangeFromTimeToTime(CMTime start, CMTime end);
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeRangeGetEnd(CMTimeRange range);
[[nodiscard]] ZAFFO_EXPORT bool CMTIMERANGE_IS_VALID(CMTimeRange range);
[[nodiscard]] ZAFFO_EXPORT bool CMTIMERANGE_IS_EMPTY(CMTimeRange range);
[[nodiscard]] ZAFFO_EXPORT bool CMTimeRangeEqual(CMTimeRange a, CMTimeRange b);
[[nodiscard]] ZAFFO_EXPORT bool CMTimeRangeContainsTime(CMTimeRange range, CMTime time);
[[nodiscard]] ZAFFO_EXPORT bool CMTimeRangeContainsTimeRange(CMTimeRange outer, CMTimeRange inner);
[[nodiscard]] ZAFFO_EXPORT CMTimeRange CMTimeRangeGetIntersection(CMTimeRange a, CMTimeRange b);
[[nodiscard]] ZAFFO_EXPORT CMTimeRange CMTimeRangeGetUnion(CMTimeRange a, CMTimeRange b);
[[nodiscard]] ZAFFO_EXPORT CMTime CMTimeClampToRange(CMTime time, CMTimeRange range);
[[nodiscard]] ZAFFO_EXPORT std::string CMTimeRangeDescription(CMTimeRange range);

inline bool operator==(CMTimeRange a, CMTimeRange b) { return CMTimeRangeEqual(a, b); }

}  // namespace zaffo
