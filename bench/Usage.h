// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <dirent.h>
#include <sys/resource.h>

#include <fstream>
#include <string>

/// What the process takes of the machine while it does nothing.
struct Usage {
  double privateMiB = 0;
  int threads = 0;
};

inline Usage usage() {
  Usage result;
  std::ifstream rollup("/proc/self/smaps_rollup");
  std::string key;
  for (double value = 0; rollup >> key; rollup.ignore(1024, '\n')) {
    if (key.rfind("Private_", 0) == 0 && rollup >> value) result.privateMiB += value / 1024;
  }
  if (DIR* tasks = opendir("/proc/self/task")) {
    while (const dirent* entry = readdir(tasks)) result.threads += entry->d_name[0] != '.';
    closedir(tasks);
  }
  return result;
}

/// Of all threads so far, in and out of the system.
inline double cpuSeconds() {
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  const auto seconds = [](timeval t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
  };
  return seconds(used.ru_utime) + seconds(used.ru_stime);
}
