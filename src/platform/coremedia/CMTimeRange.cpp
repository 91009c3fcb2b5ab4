// SPDX-License-Identifier: Apache-2.0
#include "platform/coremedia/CMTimeRange.h"

namespace zaffo {

CMTimeRange CMTimeRangeMake(CMTime start, CMTime duration) {
  return {start, duration};
}

CMTimeRange CMTimeRangeFromTimeToTime(CMTime start, CMTime end) {
  return {start, CMTimeSubtract(end, start)};
}

CMTime CMTimeRangeGetEnd(CMTimeRange range) {
  return CMTimeAdd(range.start, range.duration);
}

bool CMTIMERANGE_IS_VALID(CMTimeRange range) {
  return CMTIME_IS_VALID(range.start) && CMTIME_IS_VALID(range.duration) &&
         range.duration.epoch == 0 && !(range.duration < kCMTimeZero);
}

bool CMTIMERANGE_IS_EMPTY(CMTimeRange range) {
  return CMTIMERANGE_IS_VALID(range) && range.duration == kCMTimeZero;
}

bool CMTimeRangeEqual(CMTimeRange a, CMTimeRange b) {
  const bool validA = CMTIMERANGE_IS_VALID(a), validB = CMTIMERANGE_IS_VALID(b);
  if (!validA || !validB) return validA == validB;
  return a.start == b.start && a.duration == b.duration;
}

bool CMTimeRangeContainsTime(CMTimeRange range, CMTime time) {
  return CMTIMERANGE_IS_VALID(range) && CMTIME_IS_NUMERIC(time) && range.start <= time &&
         time < CMTimeRangeGetEnd(range);
}

bool CMTimeRangeContainsTimeRange(CMTimeRange outer, CMTimeRange inner) {
  return CMTIMERANGE_IS_VALID(outer) && CMTIMERANGE_IS_VALID(inner) && outer.start <= inner.start &&
         CMTimeRangeGetEnd(inner) <= CMTimeRangeGetEnd(outer);
}

CMTimeRange CMTimeRangeGetIntersection(CMTimeRange a, CMTimeRange b) {
  if (!CMTIMERANGE_IS_VALID(a) || !CMTIMERANGE_IS_VALID(b)) return kCMTimeRangeInvalid;
  const CMTime start = CMTimeMaximum(a.start, b.start);
  const CMTime end = CMTimeMinimum(CMTimeRangeGetEnd(a), CMTimeRangeGetEnd(b));
  return start < end ? CMTimeRangeFromTimeToTime(start, end) : kCMTimeRangeZero;
}

CMTimeRange CMTimeRangeGetUnion(CMTimeRange a, CMTimeRange b) {
  if (!CMTIMERANGE_IS_VALID(a) || !CMTIMERANGE_IS_VALID(b)) return kCMTimeRangeInvalid;
  return CMTimeRangeFromTimeToTime(CMTimeMinimum(a.start, b.start),
                                   CMTimeMaximum(CMTimeRangeGetEnd(a), CMTimeRangeGetEnd(b)));
}

CMTime CMTimeClampToRange(CMTime time, CMTimeRange range) {
  if (!CMTIMERANGE_IS_VALID(range) || CMTIME_IS_INVALID(time)) return kCMTimeInvalid;
  return CMTimeMinimum(CMTimeMaximum(time, range.start), CMTimeRangeGetEnd(range));
}

std::string CMTimeRangeDescription(CMTimeRange range) {
  if (!CMTIMERANGE_IS_VALID(range)) return "{INVALID}";
  return "{" + CMTimeDescription(range.start) + ", " + CMTimeDescription(range.duration) + "}";
}

}  // namespace zaffo
