// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

namespace zaffo::feed {

/// Where the time of one turn of the main loop went, in nanoseconds. What was neither work nor
/// waiting for a processor was spent asleep, waiting for a lock, a file or a page of memory.
struct TurnTimes {
  int64_t wall = 0;
  int64_t worked = 0;  ///< the thread's own processor time
  std::optional<int64_t>
      queued;  ///< ready to run while others ran; empty when the kernel does not record it

  [[nodiscard]] int64_t asleep() const {
    const int64_t rest = wall - worked - queued.value_or(0);
    return rest > 0 ? rest : 0;
  }
};

/// Measures the turns of the thread that created it. Thread: one.
class TurnClock {
 public:
  TurnClock();
  ~TurnClock();
  TurnClock(const TurnClock&) = delete;
  TurnClock& operator=(const TurnClock&) = delete;

  void begin();
  /// The times since begin().
  [[nodiscard]] TurnTimes end() const;

 private:
  [[nodiscard]] TurnTimes read() const;

  int statistics_ = -1;  // of the scheduler, of this thread
  TurnTimes start_;
};

}  // namespace zaffo::feed
