#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace zaffo {

/// How many threads the process has now.
inline size_t threadCount() {
  namespace fs = std::filesystem;
  return static_cast<size_t>(
      std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator()));
}

}  // namespace zaffo
