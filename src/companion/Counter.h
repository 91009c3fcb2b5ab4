#pragma once

#include <cstdint>
#include <limits>

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

}  // namespace zaffo
