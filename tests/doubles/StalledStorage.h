// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace zaffo {

/// A file whose storage stalls: while one of these lives, every read of the file, by any path or
/// descriptor, waits until release(). Other files are read as ever. One at a time; link
/// ZaffoStalledStorage, which takes the place of the system's calls. Thread: any.
class StalledStorage {
 public:
  explicit StalledStorage(const std::string& path);
  ~StalledStorage() { release(); }
  StalledStorage(const StalledStorage&) = delete;
  StalledStorage& operator=(const StalledStorage&) = delete;

  void release();

  /// Reads that wait now.
  [[nodiscard]] static int waiting();
};

}  // namespace zaffo
