// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/CompositionOffsets.h"

#include <cstdlib>
#include <utility>

extern "C" {
#include <libavutil/intreadwrite.h>
}

namespace zaffo::media {
namespace {

constexpr int64_t kMostTableBytes = int64_t{64} << 20;
constexpr int64_t kMostOffset = int64_t{1} << 28;
/// A header that has its samples looked for more often than this on average is not worth it.
constexpr std::size_t kMostRounds = 4;

}  // namespace

uint32_t CompositionOffsets::Table::at(std::size_t entry, std::size_t column) const {
  return AV_RB32(content.data() + first + (entry * columns + column) * 4);
}

/// Behind a version, flags and the number of entries.
std::optional<CompositionOffsets::Table> CompositionOffsets::readTable(
    const BoxReader& reader, const std::optional<Box>& box, std::size_t columns) {
  auto content = box ? reader.contentOf(*box, kMostTableBytes) : std::nullopt;
  if (!content || content->size() < 8) return std::nullopt;
  Table table{*std::move(content), 8, columns, 0};
  table.count = AV_RB32(table.content.data() + 4);
  if (table.count > (table.content.size() - 8) / (columns * 4)) return std::nullopt;
  return table;
}

std::unique_ptr<CompositionOffsets> CompositionOffsets::read(const BoxReader& reader,
                                                             const Box& track) {
  const auto tables = reader.find(track, {"mdia", "minf", "stbl"});
  if (!tables) return nullptr;
  std::unique_ptr<CompositionOffsets> offsets(new CompositionOffsets);
  if (!offsets->readSizes(reader, *tables) || !offsets->readChunks(reader, *tables) ||
      !offsets->readOffsets(reader, *tables)) {
    return nullptr;
  }
  offsets->goToFirst();
  return offsets;
}

bool CompositionOffsets::readSizes(const BoxReader& reader, const Box& tables) {
  const auto box = reader.find(tables, "stsz");
  auto content = box ? reader.contentOf(*box, kMostTableBytes) : std::nullopt;
  if (!content || content->size() < 12) return false;
  eachSize_ = AV_RB32(content->data() + 4);
  samples_ = AV_RB32(content->data() + 8);
  sizes_ = {*std::move(content), 12, 1, samples_};
  return eachSize_ != 0 || samples_ <= (sizes_.content.size() - 12) / 4;
}

bool CompositionOffsets::readChunks(const BoxReader& reader, const Box& tables) {
  auto runs = readTable(reader, reader.find(tables, "stsc"), 3);
  const auto narrow = reader.find(tables, "stco");
  auto chunks =
      narrow ? readTable(reader, narrow, 1) : readTable(reader, reader.find(tables, "co64"), 2);
  if (!runs || runs->count == 0 || !chunks || chunks->count == 0) return false;
  runs_ = *std::move(runs);
  chunks_ = *std::move(chunks);
  return true;
}

bool CompositionOffsets::readOffsets(const BoxReader& reader, const Box& tables) {
  auto offsets = readTable(reader, reader.find(tables, "ctts"), 2);
  if (!offsets) return false;
  offsets_ = *std::move(offsets);
  std::size_t told = 0;
  for (std::size_t i = 0; i < offsets_.count; ++i) {
    const auto offset = static_cast<int32_t>(offsets_.at(i, 1));
    if (offsets_.at(i) == 0 || std::abs(int64_t{offset}) > kMostOffset) return false;
    told += offsets_.at(i);
  }
  return told >= samples_;
}

uint64_t CompositionOffsets::positionOf(std::size_t chunk) const {
  if (chunks_.columns == 1) return chunks_.at(chunk);
  return uint64_t{chunks_.at(chunk, 0)} << 32 | chunks_.at(chunk, 1);
}

uint32_t CompositionOffsets::sizeOf(std::size_t sample) const {
  return eachSize_ != 0 ? eachSize_ : sizes_.at(sample);
}

void CompositionOffsets::goToFirst() {
  sample_ = chunk_ = run_ = offset_ = 0;
  leftOfOffset_ = offsets_.count > 0 ? offsets_.at(0) : 0;
  enterChunk();
}

/// Goes to the first sample of a chunk, or of the next one that has any.
void CompositionOffsets::enterChunk() {
  for (; chunk_ < chunks_.count; ++chunk_) {
    while (run_ + 1 < runs_.count && runs_.at(run_ + 1) <= chunk_ + 1) ++run_;
    leftInChunk_ = runs_.at(run_, 1);
    position_ = positionOf(chunk_);
    if (leftInChunk_ > 0) return;
  }
  sample_ = samples_;
}

void CompositionOffsets::goOn() {
  position_ += sizeOf(sample_);
  if (++sample_ == samples_) return;
  if (--leftOfOffset_ == 0) leftOfOffset_ = offsets_.at(++offset_);
  if (--leftInChunk_ > 0) return;
  ++chunk_;
  enterChunk();
}

std::optional<int32_t> CompositionOffsets::offsetAt(int64_t position) {
  for (std::size_t i = 0; i <= samples_ && steps_ < kMostRounds * samples_; ++i) {
    ++steps_;
    if (sample_ == samples_) goToFirst();
    if (sample_ == samples_) break;
    const bool found = position_ == static_cast<uint64_t>(position);
    const auto offset = static_cast<int32_t>(offsets_.at(offset_, 1));
    goOn();
    if (found) return offset;
  }
  return std::nullopt;
}

}  // namespace zaffo::media
