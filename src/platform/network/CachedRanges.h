// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <optional>

namespace zaffo::network {

/// Which of a resource's bytes a file has, and where. Pure. Thread: the owner's.
class CachedRanges {
 public:
  /// Bytes from `offset` on, in one piece of the file.
  struct Run {
    int64_t offset = 0;
    int64_t length = 0;
    int64_t place = 0;  ///< of the first in the file
    uint32_t checksum = 0;

    [[nodiscard]] int64_t end() const { return offset + length; }
  };

  /// Does nothing where some of its bytes are known already.
  void add(const Run& run);
  void clear() { runs_.clear(); }
  [[nodiscard]] bool isEmpty() const { return runs_.empty(); }

  /// The end of what is held without a gap from `offset` on; `offset` when it is not.
  [[nodiscard]] int64_t heldUntil(int64_t offset) const;
  /// The first byte from `offset` on that is held; null when there is none.
  [[nodiscard]] std::optional<int64_t> firstHeld(int64_t offset) const;
  /// What the byte at `offset` is part of.
  [[nodiscard]] std::optional<Run> runAt(int64_t offset) const;

 private:
  std::map<int64_t, Run> runs_;  // by offset, apart from each other
};

}  // namespace zaffo::network
