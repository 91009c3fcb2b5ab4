// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "platform/foundation/Result.h"

namespace zaffo::media {

/// One regular file opened for reading, with one descriptor however many read from it.
/// Thread: any, several at once: a read names its own position.
class LocalFile {
 public:
  /// Fails when `path` is missing, not a regular file, or must not be read.
  static Result<std::shared_ptr<const LocalFile>> open(const std::string& path);
  ~LocalFile();
  LocalFile(const LocalFile&) = delete;
  LocalFile& operator=(const LocalFile&) = delete;

  /// Bytes that the system holds in memory, read from `offset` on; 0 at the end of the file,
  /// -EAGAIN where it would have to wait for the disk or cannot tell, another negative errno on
  /// failure.
  [[nodiscard]] int64_t readHeld(int64_t offset, std::span<uint8_t> bytes) const;
  /// Bytes read from `offset` on, 0 at the end of the file; a negative errno on failure. May wait
  /// for the disk.
  [[nodiscard]] int64_t readAt(int64_t offset, std::span<uint8_t> bytes) const;
  /// Bytes at the time it was opened.
  [[nodiscard]] int64_t size() const { return size_; }
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  LocalFile(std::string path, int descriptor, int64_t size);

  std::string path_;
  int descriptor_;
  int64_t size_;
  bool isInMemory_;  ///< its file system has no disk
};

}  // namespace zaffo::media
