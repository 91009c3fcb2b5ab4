#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace zaffo {

inline size_t entryCount(const char* folder) {
  namespace fs = std::filesystem;
  return static_cast<size_t>(
      std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

/// How many threads the process has now.
inline size_t threadCount() {
  return entryCount("/proc/self/task");
}

/// How many file descriptors the process has open now.
inline size_t descriptorCount() {
  return entryCount("/proc/self/fd");
}

}  // namespace zaffo
