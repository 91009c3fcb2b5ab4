#pragma once

#include <cstdint>

namespace zaffo::feed {

/// What the kernel says this process uses. A figure is 0 when the kernel does not tell.
struct ProcessFigures {
  int threads = 0;
  int fileDescriptors = 0;
  int64_t residentBytes = 0;   ///< all pages in memory, those shared with other processes too
  int64_t privateBytes = 0;    ///< the pages in memory that no other process has
  int64_t anonymousBytes = 0;  ///< of it what holds no part of a file: heap, stacks, pictures

  /// Reads the figures; takes about a millisecond. Thread: any.
  [[nodiscard]] static ProcessFigures read();
};

}  // namespace zaffo::feed
