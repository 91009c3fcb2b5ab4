// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <string>

#include "media/WavFile.h"

namespace zaffo::feed {

/// What a run wrote of its sound.
struct Recording : test::WavFile {
  Recording() = default;
  /// The bytes of the file.
  explicit Recording(const std::string& bytes) : WavFile(test::parseWav(bytes)) {}

  [[nodiscard]] double seconds() const { return static_cast<double>(left.size()) / rate; }

  /// How much of a frequency there is in `seconds` from `start`: its amplitude.
  [[nodiscard]] double amplitude(double frequency, double start, double seconds) const {
    const auto from = static_cast<std::size_t>(start * rate);
    const auto count = static_cast<std::size_t>(seconds * rate);
    if (from + count > left.size()) return -1;
    double cosine = 0, sine = 0;
    for (std::size_t i = 0; i < count; ++i) {
      const double angle = 2 * std::numbers::pi * frequency * static_cast<double>(i) / rate;
      cosine += left[from + i] * std::cos(angle);
      sine += left[from + i] * std::sin(angle);
    }
    return 2 * std::hypot(cosine, sine) / static_cast<double>(count);
  }
  /// Seconds to the first sample that can be heard; negative when there is none.
  [[nodiscard]] double soundStart(float audible = 0.02f) const {
    for (std::size_t i = 0; i < left.size(); ++i)
      if (std::abs(left[i]) > audible) return static_cast<double>(i) / rate;
    return -1;
  }
  /// Seconds to the last sample that can be heard; negative when there is none.
  [[nodiscard]] double soundEnd() const {
    for (std::size_t i = left.size(); i > 0; --i)
      if (std::abs(left[i - 1]) > 0.02f) return static_cast<double>(i) / rate;
    return -1;
  }
  /// The longest time between two times without a pause in the sound, in seconds.
  [[nodiscard]] double longestSilence(double from, double to) const {
    std::size_t longest = 0, silent = 0;
    const auto end = std::min(static_cast<std::size_t>(to * rate), left.size());
    for (auto i = static_cast<std::size_t>(from * rate); i < end; ++i) {
      silent = std::abs(left[i]) < 1e-3f ? silent + 1 : 0;
      longest = std::max(longest, silent);
    }
    return static_cast<double>(longest) / rate;
  }
  /// The largest step from a sample to the next between two times.
  [[nodiscard]] double largestStep(double from, double to) const {
    double largest = 0;
    const auto end = std::min(static_cast<std::size_t>(to * rate), left.size());
    for (auto i = static_cast<std::size_t>(from * rate) + 1; i < end; ++i)
      largest = std::max<double>(largest, std::abs(left[i] - left[i - 1]));
    return largest;
  }
};

}  // namespace zaffo::feed
