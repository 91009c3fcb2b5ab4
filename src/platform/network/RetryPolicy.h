// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace zaffo::network {

/// When to ask again for what failed. The pauses double, and each is shortened by up to a half at
/// random, so that players whom one server failed do not come back all at once. Pure. Thread: any.
struct RetryPolicy {
  int attempts = 5;  ///< in all, without progress in between
  std::chrono::milliseconds firstPause{400};
  std::chrono::milliseconds longestPause{8000};
  /// A server that asks for a longer pause is told of as out of service.
  std::chrono::seconds longestRetryAfter{60};

  /// The pause after so many failures in a row; null to give up. `asked` is what the server's
  /// Retry-After says, in seconds; `chance` is from 0 to 1.
  [[nodiscard]] std::optional<std::chrono::milliseconds> pauseAfter(int failures,
                                                                    std::optional<int64_t> asked,
                                                                    double chance) const;
};

}  // namespace zaffo::network
