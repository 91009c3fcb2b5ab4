// SPDX-License-Identifier: Apache-2.0
#include "platform/network/RangeStore.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace zaffo::network {

void RangeStore::Block::hold(int64_t begin, int64_t end) {
  auto next = held.upper_bound(begin);
  if (next != held.begin() && std::prev(next)->second >= begin) {
    --next;
    begin = next->first;
  }
  while (next != held.end() && next->first <= end) {
    end = std::max(end, next->second);
    next = held.erase(next);
  }
  held.emplace(begin, end);
}

int64_t RangeStore::Block::heldUntil(int64_t begin) const {
  const auto next = held.upper_bound(begin);
  if (next == held.begin()) return begin;
  return std::max(begin, std::prev(next)->second);
}

bool RangeStore::write(int64_t offset, std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const int64_t index = offset / kBlockSize;
    const int64_t begin = offset % kBlockSize;
    const int64_t count = std::min(kBlockSize - begin, static_cast<int64_t>(bytes.size()));
    Block* const block = blockFor(index);
    if (!block) return false;
    std::memcpy(block->memory.data() + begin, bytes.data(), static_cast<std::size_t>(count));
    block->hold(begin, begin + count);
    trim(index);
    offset += count;
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return true;
}

int64_t RangeStore::read(int64_t offset, std::span<uint8_t> bytes) {
  int64_t copied = 0;
  const auto wanted = static_cast<int64_t>(bytes.size());
  while (copied < wanted) {
    const auto found = blocks_.find((offset + copied) / kBlockSize);
    if (found == blocks_.end()) break;
    Block& block = found->second;
    const int64_t begin = (offset + copied) % kBlockSize;
    const int64_t count = std::min(block.heldUntil(begin) - begin, wanted - copied);
    if (count <= 0) break;
    std::memcpy(bytes.data() + copied, block.memory.data() + begin,
                static_cast<std::size_t>(count));
    block.used = ++uses_;
    copied += count;
  }
  return copied;
}

int64_t RangeStore::firstMissing(int64_t offset, int64_t end) const {
  while (offset < end) {
    const auto found = blocks_.find(offset / kBlockSize);
    if (found == blocks_.end()) return offset;
    const int64_t begin = offset % kBlockSize;
    const int64_t until = found->second.heldUntil(begin);
    offset += until - begin;
    if (until < kBlockSize) break;
  }
  return std::min(offset, end);
}

std::optional<int64_t> RangeStore::firstHeld(int64_t offset) const {
  const int64_t index = offset / kBlockSize;
  for (auto block = blocks_.lower_bound(index); block != blocks_.end(); ++block) {
    const int64_t begin = block->first == index ? offset % kBlockSize : 0;
    if (block->second.heldUntil(begin) > begin) return block->first * kBlockSize + begin;
    const auto next = block->second.held.lower_bound(begin);
    if (next != block->second.held.end()) return block->first * kBlockSize + next->first;
  }
  return std::nullopt;
}

std::optional<int64_t> RangeStore::heldEndBefore(int64_t offset) const {
  auto block = blocks_.upper_bound(offset / kBlockSize);
  while (block != blocks_.begin()) {
    --block;
    const int64_t start = block->first * kBlockSize;
    const auto next = block->second.held.lower_bound(offset - start);
    if (next != block->second.held.begin()) {
      return std::min(offset, start + std::prev(next)->second);
    }
  }
  return std::nullopt;
}

void RangeStore::unpin(int64_t offset, int64_t end) {
  const auto found = pins_.find({offset, end});
  if (found != pins_.end()) pins_.erase(found);
  trim(-1);
}

void RangeStore::wantFirst() {
  for (auto block = blocks_.rbegin(); block != blocks_.rend(); ++block) {
    block->second.used = ++uses_;
  }
}

void RangeStore::setBound(int64_t bound) {
  bound_ = bound;
  trim(-1);
}

/// The block, made where there was none; null when memory is short.
RangeStore::Block* RangeStore::blockFor(int64_t index) {
  Block& block = blocks_[index];
  if (!block.memory) block.memory = media::MappedMemory(static_cast<std::size_t>(kBlockSize));
  if (!block.memory) {
    blocks_.erase(index);
    return nullptr;
  }
  block.used = ++uses_;
  return &block;
}

bool RangeStore::isPinned(int64_t index) const {
  const int64_t begin = index * kBlockSize;
  const auto overlaps = [&](const auto& pin) {
    return pin.first < begin + kBlockSize && pin.second > begin;
  };
  return std::any_of(pins_.begin(), pins_.end(), overlaps);
}

/// Drops blocks until the bound holds, save the one that is being written.
void RangeStore::trim(int64_t keptIndex) {
  while (memory() > bound_) {
    auto oldest = blocks_.end();
    for (auto block = blocks_.begin(); block != blocks_.end(); ++block) {
      if (block->first == keptIndex || isPinned(block->first)) continue;
      if (oldest == blocks_.end() || block->second.used < oldest->second.used) oldest = block;
    }
    if (oldest == blocks_.end()) return;
    blocks_.erase(oldest);
  }
}

}  // namespace zaffo::network
