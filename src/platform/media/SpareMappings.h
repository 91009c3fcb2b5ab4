// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include "platform/Mutex.h"
#include "platform/media/MappedMemory.h"

namespace zaffo::media {

/// Memory that was let go of, kept for half a second at most: who turns the pages of a feed opens
/// one decoder after another, and each finds the last one's pages there, which the system takes a
/// millisecond to fetch. Thread: any.
class SpareMappings {
 public:
  static constexpr std::size_t kMostBytes = std::size_t{16} << 20;

  [[nodiscard]] static SpareMappings& shared();

  /// Memory of just so many bytes, with whatever it held; empty when none is kept.
  [[nodiscard]] MappedMemory take(std::size_t bytes) ZAFFO_EXCLUDES(keptMutex_);
  /// Keeps the memory unless there would be too much of it.
  void keep(MappedMemory memory) ZAFFO_EXCLUDES(keptMutex_);
  /// How much is kept.
  [[nodiscard]] std::size_t bytes() const ZAFFO_EXCLUDES(keptMutex_);
  /// Gives everything back to the system now.
  void clear() ZAFFO_EXCLUDES(keptMutex_);

 private:
  mutable Mutex keptMutex_;
  std::vector<MappedMemory> kept_ ZAFFO_GUARDED_BY(keptMutex_);
  std::size_t bytes_ ZAFFO_GUARDED_BY(keptMutex_) = 0;
  bool isTimerSet_ ZAFFO_GUARDED_BY(keptMutex_) = false;  ///< for clear()
};

}  // namespace zaffo::media
