#pragma once

#include <cstdint>

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

}  // namespace zaffo::media
