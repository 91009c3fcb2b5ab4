// SPDX-License-Identifier: Apache-2.0
#include "figures/ProcessFigures.h"

#include <filesystem>
#include <fstream>
#include <string>

namespace zaffo::feed {

namespace {

int countEntries(const char* folder) {
  int count = 0;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    ++count;
  }
  return count;
}

}  // namespace

ProcessFigures ProcessFigures::read() {
  ProcessFigures figures;
  figures.threads = countEntries("/proc/self/task");
  // One of them is the iterator's own.
  const int descriptors = countEntries("/proc/self/fd");
  figures.fileDescriptors = descriptors > 0 ? descriptors - 1 : 0;

  std::ifstream rollup("/proc/self/smaps_rollup");
  for (std::string line; std::getline(rollup, line);) {
    const auto colon = line.find(':');
    if (colon == std::string::npos || !line.ends_with(" kB")) continue;
    const std::string name = line.substr(0, colon);
    const int64_t bytes = std::stoll(line.substr(colon + 1)) * 1024;
    if (name == "Rss") figures.residentBytes = bytes;
    if (name == "Anonymous") figures.anonymousBytes = bytes;
    if (name == "Private_Clean" || name == "Private_Dirty") figures.privateBytes += bytes;
  }
  return figures;
}

}  // namespace zaffo::feed
