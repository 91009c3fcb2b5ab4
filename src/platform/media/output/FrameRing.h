// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <bit>
#include <cstdint>
#include <new>
#include <span>

#include "platform/media/MappedMemory.h"

namespace zaffo::media {

/// A run of interleaved stereo whose frames are addressed by output frame number: frame n lies in
/// slot n modulo the capacity. One producer, one consumer, no lock.
///
/// The consumer reads frames from [start(), end()) that it has not passed yet. The producer learns
/// how far the consumer has got from outside (`consumed`), so a ring that nobody reads needs no
/// help to move on.
class FrameRing {
 public:
  /// Holds at least `capacityFrames` frames.
  explicit FrameRing(int64_t capacityFrames)
      : capacity_(static_cast<int64_t>(
            std::bit_ceil(static_cast<uint64_t>(capacityFrames < 1 ? 1 : capacityFrames)))),
        memory_(sizeof(float) * static_cast<size_t>(2 * capacity_)) {
    if (!memory_) throw std::bad_alloc();
  }

  /// Producer, while the consumer does not hold the ring: empties it; frame `first` comes next.
  void restart(int64_t first, uint64_t serial) {
    start_ = first;
    serial_ = serial;
    end_.store(first, std::memory_order_release);
  }

  /// Producer: appends what fits and returns the number of frames taken. Every frame below
  /// `consumed` has been read or passed over; such frames are taken and dropped.
  int64_t write(std::span<const float> interleaved, int64_t consumed);

  /// Producer: how many frames write() would take.
  [[nodiscard]] int64_t writable(int64_t consumed) const {
    const int64_t room = (consumed > start_ ? consumed : start_) + capacity_ - end();
    return room > 0 ? room : 0;
  }

  /// Either side: the number that restart() was given.
  [[nodiscard]] uint64_t serial() const { return serial_; }
  /// Either side: the first frame there ever was.
  [[nodiscard]] int64_t start() const { return start_; }
  /// Either side: one beyond the last frame written.
  [[nodiscard]] int64_t end() const { return end_.load(std::memory_order_acquire); }
  [[nodiscard]] int64_t capacity() const { return capacity_; }

  /// Consumer: frames from `first` on, `count` of them or up to the end of the storage, whichever
  /// is less. All must lie below end().
  [[nodiscard]] std::span<const float> contiguous(int64_t first, int64_t count) const {
    const int64_t slot = first & (capacity_ - 1);
    const int64_t run = count < capacity_ - slot ? count : capacity_ - slot;
    return {samples() + 2 * slot, static_cast<size_t>(2 * run)};
  }

 private:
  [[nodiscard]] float* samples() const { return reinterpret_cast<float*>(memory_.data()); }

  const int64_t capacity_;
  const MappedMemory memory_;
  int64_t start_ = 0;
  uint64_t serial_ = 0;
  std::atomic<int64_t> end_{0};
};

}  // namespace zaffo::media
