// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/Export.h"

namespace zaffo {

/// How long the pieces of some work took that ended within the last second; of more than 128 the
/// latest ones. All zero when there was none.
struct RecentTimes {
  std::size_t count = 0;
  int64_t median = 0;   ///< nanoseconds
  int64_t longest = 0;  ///< nanoseconds
  bool operator==(const RecentTimes&) const = default;
};

/// Work of the library whose times are told.
enum class TimedWork {
  /// A frame for a player is decoded, with all that it needs; the wait for samples does not count.
  Decoding,
  /// A picture of a window is drawn, on the thread that draws; the wait for the display does not
  /// count, nor what a graphics processor still does then.
  Drawing,
};

/// The times of all players, or of all windows, of the process. Thread: any.
[[nodiscard]] ZAFFO_EXPORT RecentTimes recentTimes(TimedWork work);

/// A piece of such work has just ended that took so many nanoseconds. Thread: any.
ZAFFO_EXPORT void noteTime(TimedWork work, int64_t nanoseconds);

}  // namespace zaffo
