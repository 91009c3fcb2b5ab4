// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

#include "platform/TimeSource.h"
#include "platform/coremedia/CMTimebase.h"

namespace zaffo::media {

/// The host time just after a timebase reaches `time`: a timer that rings a hair early would find
/// nothing to do. Now when it is there already; nothing when it is not on its way.
[[nodiscard]] inline std::optional<int64_t> dueHostTime(const CMTimebase& timebase, CMTime time) {
  constexpr int64_t kTimerSlackNanoseconds = 1000;
  if (const auto due = timebase.hostTimeAtTime(time)) return *due + kTimerSlackNanoseconds;
  if (timebase.time() >= time) return TimeSource::now();
  return std::nullopt;
}

/// When to wake for what is due then: a clock that stands still for a moment must not make a queue
/// spin.
[[nodiscard]] inline int64_t wakeHostTime(int64_t due) {
  constexpr int64_t kShortestNapNanoseconds = 250'000;
  return std::max(due, TimeSource::now() + kShortestNapNanoseconds);
}

/// What stands still for longer lets go of its decoder; who pauses for shorter goes on with it.
inline constexpr int64_t kUntilRestNanoseconds = 750'000'000;

/// The earliest of several times, of which some may never come.
class EarliestTime {
 public:
  void add(std::optional<int64_t> time) {
    if (time && (!earliest_ || *time < *earliest_)) earliest_ = time;
  }
  [[nodiscard]] std::optional<int64_t> time() const { return earliest_; }

 private:
  std::optional<int64_t> earliest_;
};

}  // namespace zaffo::media
