// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "platform/coremedia/CMClock.h"

namespace zaffo {

/// A movable media time line: time advances at `rate` against a master clock. The rate may be any
/// finite number: negative runs backwards, a fraction slower, 0 stands still. Every operation is
/// atomic towards the others. Thread: any.
class ZAFFO_EXPORT CMTimebase {
 public:
  /// Starts at time zero, rate 0. Null when `masterClock` is null.
  [[nodiscard]] static std::shared_ptr<CMTimebase> create(
      std::shared_ptr<const CMClock> masterClock);

  ~CMTimebase();
  CMTimebase(const CMTimebase&) = delete;
  CMTimebase& operator=(const CMTimebase&) = delete;

  /// The time as last set while the timebase stands still since, else at a nanosecond timescale.
  [[nodiscard]] CMTime time() const;
  [[nodiscard]] double rate() const;
  /// Where it was when it was last set: the place from which it goes on at its present rate. time()
  /// is short of that while a start anchored in the future has not come.
  [[nodiscard]] CMTime anchorTime() const;
  [[nodiscard]] std::shared_ptr<const CMClock> masterClock() const;

  /// The media time at a host time (TimeSource), in nanoseconds, should nothing change.
  [[nodiscard]] CMTime timeAtHostTime(int64_t hostNanoseconds) const;

  /// The first host time at which the timebase has reached `time`, should nothing change; nullopt
  /// when it stands still, moves away from it (it may be there already: then that host time is
  /// given, if it is not past), its clock stands still, or `time` is not numeric.
  [[nodiscard]] std::optional<int64_t> hostTimeAtTime(CMTime time) const;

  /// Goes on from `time` at the same rate. A time that is not numeric changes nothing.
  void setTime(CMTime time);
  /// Goes on from the present time at `rate`. A rate that is not finite changes nothing.
  void setRate(double rate);
  /// Both at once: at host time `hostNanoseconds`, past or future, the timebase shows `time` and
  /// runs at `rate`. Changes nothing when either value is one that setTime or setRate refuses.
  void setRateAndAnchorTime(double rate, CMTime time, int64_t hostNanoseconds);
  /// Continues from the present time on another clock. Null changes nothing.
  void setMasterClock(std::shared_ptr<const CMClock> masterClock);

  /// Calls `changed` after each set… above that changed something, on the setter's thread with no
  /// lock held, until the token it returns is dropped. Once dropped no further call begins; one
  /// that is under way on another thread ends by itself. The token may outlive the timebase.
  [[nodiscard]] std::shared_ptr<void> observeChanges(std::function<void()> changed);

 private:
  explicit CMTimebase(std::shared_ptr<const CMClock> masterClock);

  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace zaffo
