// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "platform/Mutex.h"
#include "platform/coremedia/CMTimebase.h"

namespace zaffo::media {

/// Where a playback is on its time line: it stands still at a time, or runs from one at a rate. A
/// start may lie a little ahead, at the instant its sound will be heard; until then the position is
/// the time it starts from.
///
/// Told the host time (TimeSource, nanoseconds), never asks for it. Thread: any for positionAt()
/// and what is const, one at a time for the rest.
class PlaybackClock {
 public:
  /// Stands at zero. Positions lie within `duration`, if that is known.
  explicit PlaybackClock(CMTime duration);

  /// `time`, or the end of the item that it lies beyond.
  [[nodiscard]] CMTime clamped(CMTime time) const;
  /// The position of the playback, as its clients are told.
  [[nodiscard]] CMTime positionAt(int64_t host) const;
  /// The time of the timebase: behind the position until a start is heard, and perhaps beyond the
  /// end of the item.
  [[nodiscard]] CMTime timeAt(int64_t host) const { return timebase_->timeAtHostTime(host); }

  /// Stands still at `time`.
  void standAt(CMTime time, int64_t host);
  /// Stands still where it is.
  void stop(int64_t host) { standAt(positionAt(host), host); }
  /// Runs from its position, which it leaves at host time `start`.
  void start(double rate, int64_t start, int64_t host);
  /// Goes on at `rate`. Returns false and changes nothing while a start lies ahead: the caller
  /// starts it again instead.
  [[nodiscard]] bool changeRate(double rate, int64_t host);
  /// Runs by `clock` from now on.
  void follow(std::shared_ptr<const CMClock> clock) { timebase_->setMasterClock(std::move(clock)); }

  [[nodiscard]] CMTime duration() const { return duration_; }
  [[nodiscard]] const std::shared_ptr<CMTimebase>& timebase() const { return timebase_; }

 private:
  void setPlace(CMTime time);

  const CMTime duration_;
  const std::shared_ptr<CMTimebase> timebase_;

  mutable Mutex placeMutex_;
  /// Where it was set to stand or to start last: the timebase is short of it before a start.
  CMTime place_ ZAFFO_GUARDED_BY(placeMutex_) = kCMTimeZero;
};

}  // namespace zaffo::media
