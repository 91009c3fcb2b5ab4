// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/BoxReader.h"

#include <algorithm>
#include <limits>
#include <span>

extern "C" {
#include <libavutil/intreadwrite.h>
}

namespace zaffo::media {
namespace {

/// More than any header has side by side; a file of fragments begins with what is looked for.
constexpr int kMostBoxes = 1024;
constexpr int64_t kHeaderBytes = 8, kLongHeaderBytes = 16;
/// What a box claims to hold is given room as it comes.
constexpr int64_t kPieceBytes = int64_t{1} << 20;

}  // namespace

Box BoxReader::whole() const {
  return {{}, 0, task_.bytes().size().value_or(std::numeric_limits<int64_t>::max())};
}

void BoxReader::each(int64_t begin, int64_t end,
                     const std::function<bool(const Box&)>& visit) const {
  for (int i = 0; i < kMostBoxes; ++i) {
    const auto box = boxAt(begin, end);
    if (!box || visit(*box)) return;
    begin = box->end;
  }
}

std::optional<Box> BoxReader::find(const Box& in, std::string_view kind) const {
  std::optional<Box> found;
  each(in.begin, in.end, [&](const Box& box) {
    if (box.is(kind)) found = box;
    return found.has_value();
  });
  return found;
}

std::optional<Box> BoxReader::find(Box in, std::initializer_list<std::string_view> path) const {
  for (const std::string_view kind : path) {
    const auto next = find(in, kind);
    if (!next) return std::nullopt;
    in = *next;
  }
  return in;
}

int BoxReader::trackID(const Box& track) const {
  const auto header = find(track, "tkhd");
  if (!header) return 0;
  // Its times come first, in four or in eight bytes each.
  const bool isLong = bytesAt<1>(header->begin)[0] == 1;
  return static_cast<int>(AV_RB32(bytesAt<4>(header->begin + (isLong ? 20 : 12)).data()));
}

std::optional<std::vector<uint8_t>> BoxReader::contentOf(const Box& box, int64_t most) const {
  const int64_t count = box.end - box.begin;
  if (count > most) return std::nullopt;
  std::vector<uint8_t> content;
  for (int64_t at = 0; at < count; at += kPieceBytes) {
    const auto piece = static_cast<std::size_t>(std::min(count - at, kPieceBytes));
    content.resize(content.size() + piece);
    const int64_t got = task_.readAll(box.begin + at, std::span(content).last(piece));
    if (got != static_cast<int64_t>(piece)) return std::nullopt;
  }
  return content;
}

std::optional<Box> BoxReader::boxAt(int64_t at, int64_t end) const {
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

}  // namespace zaffo::media
