#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "platform/coremedia/CMClock.h"

namespace zaffo {

/// A movable media time line: time advances at `rate` against a master clock. Thread: any.
class ZAFFO_EXPORT CMTimebase {
 public:
  /// Starts at time zero, rate 0. Null when `masterClock` is null.
  [[nodiscard]] static std::shared_ptr<CMTimebase> create(std::shared_ptr<const CMClock> masterClock);

  ~CMTimebase();
  CMTimebase(const CMTimebase&) = delete;
  CMTimebase& operator=(const CMTimebase&) = delete;

  [[nodiscard]] CMTime time() const;   ///< nanosecond timescale, or as last set while paused
  [[nodiscard]] double rate() const;
  [[nodiscard]] std::shared_ptr<const CMClock> masterClock() const;

  /// The media time at a host time (TimeSource), in nanoseconds.
  [[nodiscard]] CMTime timeAtHostTime(int64_t hostNanoseconds) const;

  /// The host time at which the timebase reaches `time`, should nothing change; nullopt while it
  /// stands still or moves away from it.
  [[nodiscard]] std::optional<int64_t> hostTimeAtTime(CMTime time) const;

  void setTime(CMTime time);
  void setRate(double rate);
  /// Both at once: at host time `hostNanoseconds` the timebase shows `time` and runs at `rate`.
  void setRateAndAnchorTime(double rate, CMTime time, int64_t hostNanoseconds);
  /// Continues from the present time on another clock.
  void setMasterClock(std::shared_ptr<const CMClock> masterClock);

  /// Calls `changed` after each set… above, on the setter's thread with no lock held, until the
  /// token it returns is dropped.
  [[nodiscard]] std::shared_ptr<void> observeChanges(std::function<void()> changed);

 private:
  explicit CMTimebase(std::shared_ptr<const CMClock> masterClock);

  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace zaffo
