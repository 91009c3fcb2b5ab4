// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <numbers>
#include <vector>

namespace zaffo {

/// The sound that a loop should make: each copy of the source from 0.05 s to its end, one every
/// `loopSeconds`, its volume as the ramps say, summed.
struct ExpectedSound {
  static constexpr double kTrim = 0.05;

  std::function<double(double seconds)> source;  ///< on the clip's own time line
  double loopSeconds = 0;
  double fadeIn = 0;  ///< how long the first copy rises from silence, in seconds

  [[nodiscard]] double at(double seconds) const {
    const double copy = std::floor(seconds / loopSeconds);
    const double into = seconds - copy * loopSeconds;
    double sum = rising(copy, into) * source(into + kTrim);
    if (copy >= 1 && into < kTrim) sum += (1 - into / kTrim) * source(into + loopSeconds + kTrim);
    return sum;
  }

 private:
  [[nodiscard]] double rising(double copy, double into) const {
    const double ramp = copy >= 1 ? kTrim : fadeIn;
    return into < ramp ? into / ramp : 1;
  }
};

/// The steady tone of the test clips whose names begin with "loop_tone_".
struct LoopTone {
  static constexpr double kFrequency = 442;
  static constexpr double kAmplitude = 0.5;
  static double at(double seconds) {
    return kAmplitude * std::sin(2 * std::numbers::pi * kFrequency * seconds);
  }
};

/// Root mean square of `count` samples from `from`.
inline double level(const std::vector<float>& samples, std::size_t from, std::size_t count) {
  double energy = 0;
  for (std::size_t i = from; i < from + count; ++i) energy += samples[i] * samples[i];
  return std::sqrt(energy / static_cast<double>(count));
}

inline double decibels(double a, double b) {
  return 20 * std::log10(a / b);
}

}  // namespace zaffo
