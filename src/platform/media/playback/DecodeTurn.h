// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "platform/TimeSource.h"

namespace zaffo::media {

/// How much is decoded in one block of a queue: some 5 ms, and no more than so many steps. Whoever
/// has more to do posts another block, so that what else waits has its turn. Thread: one at a time.
///
///     for (DecodeTurn turn; turn.goesOn();) …
class DecodeTurn {
 public:
  static constexpr int64_t kNanoseconds = 5'000'000;
  static constexpr int kMostSteps = 16;

  /// Whether another step may be made; the first one always.
  [[nodiscard]] bool goesOn() {
    if (steps_ == 0) end_ = TimeSource::now() + kNanoseconds;
    return steps_ < kMostSteps && (steps_++ == 0 || TimeSource::now() < end_);
  }

 private:
  int steps_ = 0;
  int64_t end_ = 0;
};

}  // namespace zaffo::media
