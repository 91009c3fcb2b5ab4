// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>

#include "platform/media/MappedMemory.h"

namespace zaffo::network {

/// Ranges of a resource's bytes, in blocks of memory. Above its bound it drops the blocks that were
/// used least recently, but none that is pinned: those may exceed the bound. Thread: the owner's.
class RangeStore {
 public:
  static constexpr int64_t kBlockSize = int64_t{64} * 1024;

  explicit RangeStore(int64_t bound) : bound_(bound) {}

  /// Takes bytes; ones that it has are written over. False when memory is short: then a part, or
  /// none, was taken.
  bool write(int64_t offset, std::span<const uint8_t> bytes);
  /// Copies what is held from `offset` on without a gap, and marks it as used. Bytes copied.
  [[nodiscard]] int64_t read(int64_t offset, std::span<uint8_t> bytes);

  /// The first byte from `offset` on that is not held, `end` at most.
  [[nodiscard]] int64_t firstMissing(int64_t offset, int64_t end) const;
  /// The first byte from `offset` on that is held; null when there is none.
  [[nodiscard]] std::optional<int64_t> firstHeld(int64_t offset) const;

  /// The end of what is held nearest before `offset`; null when nothing is.
  [[nodiscard]] std::optional<int64_t> heldEndBefore(int64_t offset) const;

  /// Keeps the range's bytes, those to come as well, until it is unpinned. Pins add up.
  void pin(int64_t offset, int64_t end) { pins_.emplace(offset, end); }
  void unpin(int64_t offset, int64_t end);

  /// Who reads next begins at the first byte: what lies farther on goes first.
  void wantFirst();
  /// Drops all bytes; pins stay.
  void clear() { blocks_.clear(); }
  /// Drops what exceeds the new bound at once.
  void setBound(int64_t bound);
  /// Bytes of memory taken.
  [[nodiscard]] int64_t memory() const { return static_cast<int64_t>(blocks_.size()) * kBlockSize; }

 private:
  struct Block {
    media::MappedMemory memory;
    std::map<int64_t, int64_t> held;  // begin to end, apart from each other, within the block
    uint64_t used = 0;

    void hold(int64_t begin, int64_t end);
    /// The end of what is held without a gap from `begin` on; `begin` when it is not.
    [[nodiscard]] int64_t heldUntil(int64_t begin) const;
  };

  [[nodiscard]] Block* blockFor(int64_t index);
  [[nodiscard]] bool isPinned(int64_t index) const;
  void trim(int64_t keptIndex);

  int64_t bound_;
  uint64_t uses_ = 0;
  std::map<int64_t, Block> blocks_;  // by offset / kBlockSize
  std::multiset<std::pair<int64_t, int64_t>> pins_;
};

}  // namespace zaffo::network
