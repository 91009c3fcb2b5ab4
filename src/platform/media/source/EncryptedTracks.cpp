// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/EncryptedTracks.h"

#include <algorithm>
#include <array>
#include <functional>
#include <limits>
#include <optional>
#include <string_view>

extern "C" {
#include <libavutil/intreadwrite.h>
}

namespace zaffo::media {
namespace {

/// More than any header has side by side; a file of fragments begins with what is looked for.
constexpr int kMostBoxes = 1024;
constexpr int64_t kHeaderBytes = 8, kLongHeaderBytes = 16;

/// A stretch of the file that begins with its size and its kind and may hold others.
struct Box {
  std::array<char, 4> kind{};
  int64_t begin = 0, end = 0;  ///< of what it holds

  [[nodiscard]] bool is(std::string_view name) const {
    return std::string_view(kind.data(), kind.size()) == name;
  }
};

class BoxReader {
 public:
  explicit BoxReader(ReadTask& task) : task_(task) {}

  [[nodiscard]] Box whole() const {
    return {{}, 0, task_.bytes().size().value_or(std::numeric_limits<int64_t>::max())};
  }

  /// Calls `visit` with each box from `begin` to `end`, until it says that it has seen enough.
  void each(int64_t begin, int64_t end, const std::function<bool(const Box&)>& visit) const {
    for (int i = 0; i < kMostBoxes; ++i) {
      const auto box = boxAt(begin, end);
      if (!box || visit(*box)) return;
      begin = box->end;
    }
  }

  /// The first box of a kind in another.
  [[nodiscard]] std::optional<Box> find(const Box& in, std::string_view kind) const {
    std::optional<Box> found;
    each(in.begin, in.end, [&](const Box& box) {
      if (box.is(kind)) found = box;
      return found.has_value();
    });
    return found;
  }

  /// The box at the end of a path of kinds.
  [[nodiscard]] std::optional<Box> find(Box in,
                                        std::initializer_list<std::string_view> path) const {
    for (const std::string_view kind : path) {
      const auto next = find(in, kind);
      if (!next) return std::nullopt;
      in = *next;
    }
    return in;
  }

  /// The bytes from `offset` on; zeros beyond the end of the file.
  template <std::size_t Count>
  [[nodiscard]] std::array<uint8_t, Count> bytesAt(int64_t offset) const {
    std::array<uint8_t, Count> bytes{};
    static_cast<void>(task_.readAll(offset, bytes));
    return bytes;
  }

 private:
  [[nodiscard]] std::optional<Box> boxAt(int64_t at, int64_t end) const {
    const auto head = bytesAt<kLongHeaderBytes>(at);
    Box box{{}, at + kHeaderBytes, 0};
    std::copy_n(head.begin() + 4, 4, box.kind.begin());
    int64_t size = AV_RB32(head.data());
    if (size == 1) {
      box.begin = at + kLongHeaderBytes;
      size = static_cast<int64_t>(AV_RB64(head.data() + kHeaderBytes));
    } else if (size == 0) {
      size = end - at;
    }
    if (size < box.begin - at || size > end - at) return std::nullopt;
    box.end = at + size;
    return box;
  }

  ReadTask& task_;
};

/// The entries of a description of samples say what kind they are; encrypted ones hide the codec.
bool isEncrypted(const BoxReader& reader, const Box& track) {
  constexpr std::array<std::string_view, 4> kEncrypted{"encv", "enca", "drmi", "drms"};
  const auto description = reader.find(track, {"mdia", "minf", "stbl", "stsd"});
  bool found = false;
  // A version, flags and the number of entries come first.
  if (description)
    reader.each(description->begin + 8, description->end, [&](const Box& entry) {
      found = std::ranges::any_of(kEncrypted, [&](auto kind) { return entry.is(kind); });
      return found;
    });
  return found;
}

/// 0 when the track does not tell.
int trackID(const BoxReader& reader, const Box& track) {
  const auto header = reader.find(track, "tkhd");
  if (!header) return 0;
  // Its times come first, in four or in eight bytes each.
  const bool isLong = reader.bytesAt<1>(header->begin)[0] == 1;
  return static_cast<int>(AV_RB32(reader.bytesAt<4>(header->begin + (isLong ? 20 : 12)).data()));
}

}  // namespace

std::vector<int> encryptedTracks(ReadTask& task) {
  const BoxReader reader(task);
  std::vector<int> tracks;
  if (const auto movie = reader.find(reader.whole(), "moov")) {
    reader.each(movie->begin, movie->end, [&](const Box& box) {
      if (box.is("trak") && isEncrypted(reader, box)) tracks.push_back(trackID(reader, box));
      return false;
    });
  }
  return tracks;
}

}  // namespace zaffo::media
