// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

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

/// How many of them do not serve the dispatch queues and their timers. Those come when first there
/// is work, and those for blocking queues as work happens to coincide.
inline size_t threadCountBesideQueues() {
  namespace fs = std::filesystem;
  const auto isBesideQueues = [](const fs::directory_entry& thread) {
    std::string name;
    std::getline(std::ifstream(thread.path() / "comm") >> std::ws, name);
    return !name.starts_with("zaffo-work-") && name != "zaffo-blocking" && name != "zaffo-timers";
  };
  return static_cast<size_t>(std::count_if(fs::directory_iterator("/proc/self/task"),
                                           fs::directory_iterator(), isBesideQueues));
}

/// What `threads` counts once that is `most` or less, or ten seconds have passed: the system still
/// counts a thread for a moment after it was joined.
template <class Count>
size_t countOfThreadsThatStay(Count threads, size_t most) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  size_t count = threads();
  while (count > most && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
    count = threads();
  }
  return count;
}

/// How many file descriptors the process has open now.
inline size_t descriptorCount() {
  return entryCount("/proc/self/fd");
}

}  // namespace zaffo
