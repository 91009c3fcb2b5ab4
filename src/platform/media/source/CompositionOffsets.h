// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "platform/media/source/BoxReader.h"

namespace zaffo::media {

/// By how much the samples of a track of an MP4 or QuickTime file are presented later than they are
/// decoded. FFmpeg tells that of a sample only when it reads it; here it is had from the header.
/// Walks the samples in the order in which the file lists them.
class CompositionOffsets {
 public:
  /// In the work of the reader's task. `track` is a "trak". Null where the tables are damaged or of
  /// a kind that is not known here.
  [[nodiscard]] static std::unique_ptr<CompositionOffsets> read(const BoxReader& reader,
                                                                const Box& track);

  /// The offset of the sample whose bytes begin at `position`, which is looked for from the last
  /// one on. Null when there is none, or after too long a search in all.
  [[nodiscard]] std::optional<int32_t> offsetAt(int64_t position);
  void goToFirst();

 private:
  /// A table of numbers of 32 bits, some to an entry, behind a number of its entries.
  struct Table {
    std::vector<uint8_t> content;
    std::size_t first = 0;    ///< byte
    std::size_t columns = 1;  ///< numbers to an entry
    std::size_t count = 0;    ///< of entries

    [[nodiscard]] uint32_t at(std::size_t entry, std::size_t column = 0) const;
  };

  [[nodiscard]] static std::optional<Table> readTable(const BoxReader& reader,
                                                      const std::optional<Box>& box,
                                                      std::size_t columns);
  [[nodiscard]] bool readSizes(const BoxReader& reader, const Box& tables);
  [[nodiscard]] bool readChunks(const BoxReader& reader, const Box& tables);
  [[nodiscard]] bool readOffsets(const BoxReader& reader, const Box& tables);
  [[nodiscard]] uint64_t positionOf(std::size_t chunk) const;
  [[nodiscard]] uint32_t sizeOf(std::size_t sample) const;
  void goOn();
  void enterChunk();

  Table sizes_, runs_, chunks_, offsets_;
  uint32_t eachSize_ = 0;  ///< of all samples, where they are alike
  std::size_t samples_ = 0;
  std::size_t steps_ = 0;  ///< gone in all

  std::size_t sample_ = 0;     ///< the present one; samples_ behind the last
  uint64_t position_ = 0;      ///< its
  std::size_t chunk_ = 0;      ///< that it lies in
  std::size_t run_ = 0;        ///< of chunks with as many samples each
  uint32_t leftInChunk_ = 0;   ///< with the present one
  std::size_t offset_ = 0;     ///< the entry that holds for it
  uint32_t leftOfOffset_ = 0;  ///< with the present one
};

}  // namespace zaffo::media
