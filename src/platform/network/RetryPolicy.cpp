// SPDX-License-Identifier: Apache-2.0
#include "platform/network/RetryPolicy.h"

#include <algorithm>

namespace zaffo::network {

std::optional<std::chrono::milliseconds> RetryPolicy::pauseAfter(int failures,
                                                                 std::optional<int64_t> asked,
                                                                 double chance) const {
  using std::chrono::milliseconds;
  if (failures >= attempts) return std::nullopt;
  if (asked && *asked > longestRetryAfter.count()) return std::nullopt;
  milliseconds pause = firstPause;
  for (int i = 1; i < failures && pause < longestPause; ++i) pause *= 2;
  pause = std::min(pause, longestPause);
  const auto shortened =
      milliseconds(static_cast<int64_t>(static_cast<double>(pause.count()) * (1 - chance / 2)));
  return std::max<milliseconds>(shortened, std::chrono::seconds(asked.value_or(0)));
}

}  // namespace zaffo::network
