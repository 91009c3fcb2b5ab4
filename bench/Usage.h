#pragma once

#include <dirent.h>

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
