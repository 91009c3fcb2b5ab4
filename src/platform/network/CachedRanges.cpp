// SPDX-License-Identifier: Apache-2.0
#include "platform/network/CachedRanges.h"

#include <algorithm>
#include <iterator>

namespace zaffo::network {

void CachedRanges::add(const Run& run) {
  const auto held = firstHeld(run.offset);
  if (run.length <= 0 || (held && *held < run.end())) return;
  runs_.emplace(run.offset, run);
}

int64_t CachedRanges::heldUntil(int64_t offset) const {
  auto run = runs_.upper_bound(offset);
  if (run == runs_.begin()) return offset;
  int64_t until = std::max(offset, std::prev(run)->second.end());
  if (until == offset) return offset;
  for (; run != runs_.end() && run->first == until; ++run) until = run->second.end();
  return until;
}

std::optional<int64_t> CachedRanges::firstHeld(int64_t offset) const {
  if (runAt(offset)) return offset;
  const auto next = runs_.lower_bound(offset);
  return next == runs_.end() ? std::nullopt : std::optional(next->first);
}

std::optional<CachedRanges::Run> CachedRanges::runAt(int64_t offset) const {
  const auto next = runs_.upper_bound(offset);
  if (next == runs_.begin()) return std::nullopt;
  const Run& run = std::prev(next)->second;
  return offset < run.end() ? std::optional(run) : std::nullopt;
}

}  // namespace zaffo::network
