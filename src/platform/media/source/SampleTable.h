// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace zaffo::media {

/// Where the samples of a track lie in its file and when they are due, in decode order. Holds a few
/// bytes for each: differences, in as few bytes as they need, in blocks that are found by number.
/// Times are in the time base of the track. Thread: any, unchanged once made.
class SampleTable {
 public:
  struct Entry {
    int64_t position = 0;  ///< of its first byte
    int64_t decode = 0;
    int64_t offset = 0;  ///< from decoding to presentation
    int32_t size = 0;
    bool isSync = false;
    bool isHidden = false;      ///< decoded only
    bool isDisposable = false;  ///< no other is decoded from it
    bool operator==(const Entry&) const = default;
  };

  /// Walks the samples from one on.
  class Walk {
   public:
    /// `place` is at most size().
    Walk(const SampleTable& table, std::size_t place);
    /// Null behind the last one.
    [[nodiscard]] std::optional<Entry> next();
    [[nodiscard]] std::optional<Entry> peek() const { return Walk(*this).next(); }
    [[nodiscard]] std::size_t place() const { return place_; }

   private:
    friend class SampleTable;
    [[nodiscard]] uint64_t takeNumber();
    [[nodiscard]] int64_t takeDifference();

    const SampleTable* table_;
    std::size_t place_ = 0;  ///< the number of the next one
    std::size_t at_ = 0;     ///< in the table's bytes
    Entry last_;             ///< the one before, or what stands for it where a block begins
    uint64_t step_ = 0;      ///< between the decode times of the last two
  };

  /// Puts one behind the last.
  void add(const Entry& entry);
  /// Lets go of the room that was for more.
  void finish();

  [[nodiscard]] std::size_t size() const { return size_; }
  /// `place` is less than size().
  [[nodiscard]] Entry at(std::size_t place) const { return *Walk(*this, place).next(); }
  /// The number of the last sync sample that is decoded at or before `time`, and the first sample
  /// for a time before it; null when there is none.
  [[nodiscard]] std::optional<std::size_t> syncAt(int64_t time) const;
  /// The number of the last sync sample up to `place`, which is less than size().
  [[nodiscard]] std::optional<std::size_t> lastSync(std::size_t place) const;
  /// What it occupies.
  [[nodiscard]] std::size_t bytes() const;

 private:
  static constexpr std::size_t kBlock = 64;
  struct Block {
    int64_t position, decode;
    std::size_t at;
  };

  void addNumber(uint64_t number);
  void addDifference(int64_t difference);
  [[nodiscard]] std::ptrdiff_t lastShownAt(int64_t time) const;

  std::vector<Block> blocks_;
  std::vector<uint8_t> bytes_;
  std::size_t size_ = 0;
  Entry last_;  ///< of those that were added
  uint64_t step_ = 0;
};

}  // namespace zaffo::media
