// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "platform/network/HttpHead.h"

namespace zaffo::network {

/// Whether the bytes of an answer may be kept for later readers, and for how long these need not
/// ask whether they are still the same: as Cache-Control says, or for five minutes. Times are those
/// of TimeSource, in nanoseconds. Pure. Thread: the owner's.
class Freshness {
 public:
  static constexpr int64_t kUsualSeconds = 300;

  /// The head of an answer that came at `now`.
  void learn(const HttpHead& head, int64_t now);

  /// Bytes from an earlier run of the program, which are fresh for so many seconds from `now` on.
  void adopt(int64_t seconds, int64_t now);

  /// Later readers ask, whatever was learnt.
  void expire() { end_ = 0; }

  /// False after "no-store", and before anything was learnt.
  [[nodiscard]] bool mayKeep() const { return mayKeep_; }
  [[nodiscard]] bool isFresh(int64_t now) const { return mayKeep_ && now < end_; }

  /// For how many seconds from `now` on they are.
  [[nodiscard]] int64_t secondsLeft(int64_t now) const;

  bool operator==(const Freshness&) const = default;

 private:
  bool mayKeep_ = false;
  int64_t end_ = 0;
};

}  // namespace zaffo::network
