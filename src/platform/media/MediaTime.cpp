// SPDX-License-Identifier: Apache-2.0
#include "platform/media/MediaTime.h"

extern "C" {
#include <libavutil/mathematics.h>
}

#include <limits>

namespace zaffo::media {
namespace {

constexpr int64_t kLargest = std::numeric_limits<int64_t>::max() / 4;
constexpr CMTimeScale kNanoseconds = 1'000'000'000;

}  // namespace

CMTime timeFromTimestamp(int64_t timestamp, AVRational timeBase) {
  if (timestamp == AV_NOPTS_VALUE || timeBase.num <= 0 || timeBase.den <= 0) return kCMTimeInvalid;
  const bool fits = timestamp <= kLargest / timeBase.num && timestamp >= -kLargest / timeBase.num;
  if (fits) return CMTimeMake(timestamp * timeBase.num, timeBase.den);
  const int64_t nanoseconds = av_rescale_q(timestamp, timeBase, {1, kNanoseconds});
  return nanoseconds == INT64_MIN ? kCMTimeInvalid : CMTimeMake(nanoseconds, kNanoseconds);
}

int64_t timestampFromTime(CMTime time, AVRational timeBase) {
  if (CMTIME_IS_NEGATIVE_INFINITY(time)) return -kLargest;
  if (CMTIME_IS_POSITIVE_INFINITY(time)) return kLargest;
  if (!CMTIME_IS_NUMERIC(time)) return 0;
  const int64_t value = av_rescale_q_rnd(time.value, {1, time.timescale}, timeBase, AV_ROUND_DOWN);
  if (value == INT64_MIN) return time.value < 0 ? -kLargest : kLargest;
  return value;
}

}  // namespace zaffo::media
