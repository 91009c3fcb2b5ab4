// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/media/source/ReadTask.h"

namespace zaffo::media {

/// A stretch of an MP4 or QuickTime file that begins with its size and its kind and may hold
/// others.
struct Box {
  std::array<char, 4> kind{};
  int64_t begin = 0, end = 0;  ///< of what it holds

  [[nodiscard]] bool is(std::string_view name) const {
    return std::string_view(kind.data(), kind.size()) == name;
  }
};

/// Finds boxes by their headers, for what FFmpeg does not tell of them. Called in the work of a
/// ReadTask, which outlives it.
class BoxReader {
 public:
  explicit BoxReader(ReadTask& task) : task_(task) {}

  [[nodiscard]] Box whole() const;
  /// Calls `visit` with each box from `begin` to `end`, until it says that it has seen enough.
  void each(int64_t begin, int64_t end, const std::function<bool(const Box&)>& visit) const;
  /// The first box of a kind in another.
  [[nodiscard]] std::optional<Box> find(const Box& in, std::string_view kind) const;
  /// The box at the end of a path of kinds.
  [[nodiscard]] std::optional<Box> find(Box in, std::initializer_list<std::string_view> path) const;

  /// The ID of a "trak"; 0 when it does not tell.
  [[nodiscard]] int trackID(const Box& track) const;
  /// What a box holds; null where that is more than `most` bytes or not all there.
  [[nodiscard]] std::optional<std::vector<uint8_t>> contentOf(const Box& box, int64_t most) const;
  /// The bytes from `offset` on; zeros beyond the end of the file.
  template <std::size_t Count>
  [[nodiscard]] std::array<uint8_t, Count> bytesAt(int64_t offset) const {
    std::array<uint8_t, Count> bytes{};
    static_cast<void>(task_.readAll(offset, bytes));
    return bytes;
  }

 private:
  [[nodiscard]] std::optional<Box> boxAt(int64_t at, int64_t end) const;

  ReadTask& task_;
};

}  // namespace zaffo::media
