// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>

namespace zaffo {

/// How much work is queued or running on all worker threads. Thread: any.
class WorkCount {
 public:
  /// The process's count.
  [[nodiscard]] static WorkCount& shared();

  void begin() { count_.fetch_add(1); }
  void end() {
    if (count_.fetch_sub(1) == 1) count_.notify_all();
  }

  /// Waits until the count is zero; returns at once when work has been abandoned (see giveUp).
  void waitUntilZero() const;

  /// Work that is still queued will never run: the process is ending.
  void giveUp();

 private:
  std::atomic<int64_t> count_{0};
  std::atomic<bool> givenUp_{false};
};

}  // namespace zaffo
