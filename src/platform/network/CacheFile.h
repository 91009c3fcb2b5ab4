// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/network/CachedRanges.h"
#include "platform/network/HttpHead.h"

namespace zaffo::network {

/// What the bytes in a file are part of, as far as a server said.
struct CacheDescription {
  std::string location;  ///< where the server led
  Validator validator;
  std::optional<int64_t> size;
  bool servesRanges = true;
  int64_t storedAt = 0;    ///< seconds since 1970
  int64_t freshUntil = 0;  ///< likewise; from then on it is asked whether they are still the same

  bool operator==(const CacheDescription&) const = default;

  [[nodiscard]] std::string text() const;
  /// Null for what text() never gives.
  [[nodiscard]] static std::optional<CacheDescription> parse(const std::string& text);
};

/// Bytes of one resource in a file that is only ever added to: descriptions, of which the last
/// counts, and runs of bytes, each behind a head with checksums. Whatever a crash in the midst of a
/// write leaves behind the last whole record is cut off when the file is opened; bytes that were
/// damaged are found out when they are read. May wait for the disk. Thread: one at a time.
class CacheFile {
 public:
  /// Longer records are not written, and not believed.
  static constexpr int64_t kLongestRecord = int64_t{64} * 1024;

  /// Opens a file, making it where there is none. Null with an errno in `failure`.
  [[nodiscard]] static std::unique_ptr<CacheFile> open(const std::string& path, int& failure);
  ~CacheFile();
  CacheFile(const CacheFile&) = delete;
  CacheFile& operator=(const CacheFile&) = delete;

  /// What was in it when it was opened; null where it was empty.
  [[nodiscard]] const std::optional<CacheDescription>& description() const { return description_; }
  [[nodiscard]] const CachedRanges& ranges() const { return ranges_; }
  /// Bytes that it takes up.
  [[nodiscard]] int64_t size() const { return size_; }

  /// All three give 0, or the errno of what failed; then the file is as it was.
  int describe(const CacheDescription& description);
  /// `run` becomes where the bytes lie.
  int append(int64_t offset, std::span<const uint8_t> bytes, CachedRanges::Run& run);
  int clear();

  /// All bytes of a run; null when they are not what was written.
  [[nodiscard]] std::optional<std::vector<uint8_t>> read(const CachedRanges::Run& run) const;

 private:
  struct Head;
  explicit CacheFile(int descriptor) : descriptor_(descriptor) {}

  int load();
  void take(const Head& head, int64_t place);
  int write(uint32_t kind, int64_t offset, std::span<const uint8_t> bytes, int64_t& place);

  const int descriptor_;
  int64_t size_ = 0;
  std::optional<CacheDescription> description_;
  CachedRanges ranges_;
};

}  // namespace zaffo::network
