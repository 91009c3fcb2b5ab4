// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "platform/coremedia/CMTime.h"

namespace zaffo::media {

/// How late the frames of a player are: when decoding is to hurry, and when a late frame is better
/// than none. Told of each frame that is given; host times in nanoseconds (TimeSource). Thread: one
/// at a time.
class Lateness {
 public:
  /// A decoder this far behind hurries.
  static constexpr CMTime kBehind = CMTimeMake(1, 10);
  /// One this far behind goes on from a later sync sample, as soon as one is due.
  static constexpr CMTime kFarBehind = CMTimeMake(1, 4);
  /// After so long without a frame, while others are due, one that is late is better than none.
  static constexpr int64_t kOverdueNanoseconds = 100'000'000;

  /// Other frames are given from now on.
  void begin(int64_t host) {
    lastEnd_ = kCMTimeInvalid;
    lastGiven_ = host;
  }
  /// A frame was given that is shown until `end`.
  void gave(CMTime end, int64_t host) {
    lastEnd_ = end;
    lastGiven_ = host;
  }

  /// Whether frames that no other refers to are to be left out, with the media at `now`.
  [[nodiscard]] bool hurries(CMTime now) const {
    return CMTIME_IS_NUMERIC(lastEnd_) && lastEnd_ + kBehind < now;
  }
  /// Whether decoding is to go on from the latest sync sample that is due, with the media at `now`.
  [[nodiscard]] bool isFarBehind(CMTime now) const {
    return CMTIME_IS_NUMERIC(lastEnd_) && lastEnd_ + kFarBehind < now;
  }
  /// Whether a frame that is late is to be given.
  [[nodiscard]] bool isOverdue(int64_t host) const { return host >= overdueAt(); }
  /// When it is, if none is given before.
  [[nodiscard]] int64_t overdueAt() const { return lastGiven_ + kOverdueNanoseconds; }

 private:
  CMTime lastEnd_ = kCMTimeInvalid;
  int64_t lastGiven_ = 0;
};

}  // namespace zaffo::media
