#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace zaffo {

/// How many file descriptors the process has open now.
inline size_t descriptorCount() {
  namespace fs = std::filesystem;
  return static_cast<size_t>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

}  // namespace zaffo
