// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace zaffo::fuzz {

/// A file without a place on the disk, whose content is replaced for each run. Thread: one.
class MemoryFile {
 public:
  MemoryFile();
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  void setContent(std::span<const uint8_t> bytes) const;
  /// Can be opened like that of any regular file, while this object lives.
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  int descriptor_;
  std::string path_;
};

}  // namespace zaffo::fuzz
