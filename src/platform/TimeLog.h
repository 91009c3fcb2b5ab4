// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "platform/RecentTimes.h"
#include "platform/TimeSource.h"

namespace zaffo {

/// Remembers how long the latest pieces of some work took; allocates nothing. Thread: one at a
/// time.
class TimeLog {
 public:
  /// A piece of work has just ended that took so many nanoseconds.
  void note(int64_t duration) { entries_[noted_++ % kMost] = {TimeSource::now(), duration}; }

  [[nodiscard]] RecentTimes recent() const {
    const int64_t now = TimeSource::now();
    std::array<int64_t, kMost> durations{};
    std::size_t count = 0;
    for (const Entry& entry : entries_)
      if (entry.end > now - kSpan && entry.end <= now) durations[count++] = entry.duration;
    if (count == 0) return {};
    std::sort(durations.data(), durations.data() + count);
    return {count, durations[count / 2], durations[count - 1]};
  }

 private:
  static constexpr int64_t kSpan = 1'000'000'000;
  static constexpr std::size_t kMost = 128;
  struct Entry {
    int64_t end = std::numeric_limits<int64_t>::max();  ///< of none
    int64_t duration = 0;
  };

  std::array<Entry, kMost> entries_;  ///< a ring
  std::size_t noted_ = 0;
};

}  // namespace zaffo
