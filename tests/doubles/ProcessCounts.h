#pragma once

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

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

/// How many of them do not serve the dispatch queues. Those for blocking queues come as work
/// happens to coincide, and go when they were free for long.
inline size_t threadCountBesideQueues() {
  namespace fs = std::filesystem;
  const auto isBesideQueues = [](const fs::directory_entry& thread) {
    std::string name;
    std::getline(std::ifstream(thread.path() / "comm") >> std::ws, name);
    return !name.starts_with("zaffo-work-") && name != "zaffo-blocking";
  };
  return static_cast<size_t>(std::count_if(fs::directory_iterator("/proc/self/task"),
                                           fs::directory_iterator(), isBesideQueues));
}

/// How many file descriptors the process has open now.
inline size_t descriptorCount() {
  return entryCount("/proc/self/fd");
}

}  // namespace zaffo
