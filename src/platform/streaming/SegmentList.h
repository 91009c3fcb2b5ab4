// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "platform/network/Playlist.h"

namespace zaffo::streaming {

/// The segments of a media playlist on the time line of the stream, by their numbers. Thread: the
/// owner's.
class SegmentList {
 public:
  struct Entry {
    network::MediaSegment media;
    double start = 0;  ///< seconds, as the list adds up
    int run = 0;       ///< whose segments continue each other's times
  };

  explicit SegmentList(network::Playlist playlist);

  [[nodiscard]] bool isEmpty() const { return entries_.empty(); }
  [[nodiscard]] bool isEnded() const { return isEnded_; }
  [[nodiscard]] double targetSeconds() const { return targetSeconds_; }
  [[nodiscard]] int64_t firstNumber() const { return entries_.front().media.number; }
  /// One behind the last.
  [[nodiscard]] int64_t endNumber() const { return entries_.back().media.number + 1; }
  [[nodiscard]] bool has(int64_t number) const {
    return !isEmpty() && number >= firstNumber() && number < endNumber();
  }
  [[nodiscard]] const Entry& at(int64_t number) const {
    return entries_[static_cast<std::size_t>(number - firstNumber())];
  }
  /// Of the segment that holds the time, or the nearest to it.
  [[nodiscard]] int64_t numberFor(double seconds) const;
  /// Where the last one ends.
  [[nodiscard]] double end() const;

  /// Of a live stream: begins three target durations before its end, as players do.
  void startNearEnd();
  /// Of a live stream: its list as it is by now. What left it is forgotten, what is new goes on
  /// from what was last. Whether anything follows, or it has ended.
  bool goOn(network::Playlist newer);

  /// Whether both begin and end each of their segments at the same times, so that one can be gone
  /// over from to the other at every border.
  [[nodiscard]] bool isAlignedWith(const SegmentList& other) const;

 private:
  std::vector<Entry> entries_;
  double targetSeconds_ = 0;
  bool isEnded_ = false;
};

}  // namespace zaffo::streaming
