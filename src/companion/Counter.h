// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <limits>
#include <utility>

#include "platform/FatalError.h"

namespace zaffo {

/// Counters never wrap: going past either end of the range is a fatal error.
[[nodiscard]] inline std::int64_t incremented(std::int64_t counter) {
  if (counter == std::numeric_limits<std::int64_t>::max()) fatalError("Counter overflow");
  return counter + 1;
}

[[nodiscard]] inline std::int64_t decremented(std::int64_t counter) {
  if (counter == std::numeric_limits<std::int64_t>::min()) fatalError("Counter overflow");
  return counter - 1;
}

/// Hands out numbers in order. Running out of them is a fatal error. Thread: one at a time.
class Sequence {
 public:
  explicit Sequence(std::int64_t first = 0) : next_(first) {}
  [[nodiscard]] std::int64_t next() { return std::exchange(next_, incremented(next_)); }

 private:
  std::int64_t next_;
};

}  // namespace zaffo
