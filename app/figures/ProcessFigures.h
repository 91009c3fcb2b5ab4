// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace zaffo::feed {

/// What this process uses, according to the kernel. A figure is 0 when the kernel does not report
/// it.
struct ProcessFigures {
  int threads = 0;
  int fileDescriptors = 0;
  int64_t residentBytes = 0;   ///< all pages in memory, including those shared with other processes
  int64_t privateBytes = 0;    ///< pages in memory that no other process shares
  int64_t anonymousBytes = 0;  ///< of these, what is not backed by a file: heap, stacks, pictures

  /// Reads the figures; takes about a millisecond. Thread: any.
  [[nodiscard]] static ProcessFigures read();
};

}  // namespace zaffo::feed
