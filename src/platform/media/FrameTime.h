// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "platform/coremedia/CMTime.h"

namespace zaffo::media {

/// The frame that begins at or before `nanoseconds` (not negative) of an output's time line.
[[nodiscard]] constexpr int64_t framesAtNanoseconds(int64_t nanoseconds, int sampleRate) {
  constexpr int64_t second = 1'000'000'000;
  return nanoseconds / second * sampleRate + nanoseconds % second * sampleRate / second;
}

/// When frame `frame` (not negative) begins, in nanoseconds of an output's time line.
[[nodiscard]] constexpr int64_t nanosecondsAtFrame(int64_t frame, int sampleRate) {
  constexpr int64_t second = 1'000'000'000;
  return frame / sampleRate * second + frame % sampleRate * second / sampleRate;
}

/// Where a numeric time lies among the frames of a rate, between two of them too: off by less than
/// a billionth of a frame within the first hours. Times that no media reaches are limited, so that
/// sums of frame numbers do not overflow.
[[nodiscard]] inline double framePosition(CMTime time, int sampleRate) {
  constexpr double kFarthest = 1e15;
  const int64_t seconds = time.value / time.timescale;
  const int64_t rest = time.value % time.timescale;  // of the sign of the value
  return std::clamp(static_cast<double>(seconds) * sampleRate +
                        static_cast<double>(rest * sampleRate) / time.timescale,
                    -kFarthest, kFarthest);
}

/// The frame nearest to a numeric time.
[[nodiscard]] inline int64_t nearestFrame(CMTime time, int sampleRate) {
  return std::llround(framePosition(time, sampleRate));
}

}  // namespace zaffo::media
