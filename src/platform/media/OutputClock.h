#pragma once

#include <cstdint>

#include "platform/Mutex.h"
#include "platform/coremedia/CMClock.h"

namespace zaffo::media {

/// The clock of the sound output: starts at zero when it is made, runs with the host clock, and is
/// steered to a device's pace by changes of rate. It never stops, jumps or goes back. Thread: any.
class OutputClock final : public CMClock {
 public:
  OutputClock();

  [[nodiscard]] int64_t nanosecondsAtHostTime(int64_t hostNanoseconds) const override;
  [[nodiscard]] int64_t hostTimeAtNanoseconds(int64_t nanoseconds) const override;

  /// From now on runs at `rate` against the host clock; limited to 0.9 … 1.1.
  void steer(double rate);
  [[nodiscard]] double rate() const;

 private:
  /// A straight piece of the clock's time against the host's.
  struct Line {
    int64_t host;
    int64_t shown;
    double rate;
    [[nodiscard]] int64_t at(int64_t hostNanoseconds) const;
    [[nodiscard]] int64_t inverse(int64_t nanoseconds) const;
  };

  mutable Mutex lineMutex_;
  Line before_ ZAFFO_GUARDED_BY(lineMutex_);  ///< for host times before now_.host
  Line now_ ZAFFO_GUARDED_BY(lineMutex_);
};

/// The frame that begins at or before `nanoseconds` (not negative) of an output's time line.
[[nodiscard]] constexpr int64_t framesAtNanoseconds(int64_t nanoseconds, int sampleRate) {
  constexpr int64_t second = 1'000'000'000;
  return nanoseconds / second * sampleRate + nanoseconds % second * sampleRate / second;
}

/// When frame `frame` (not negative) begins, in nanoseconds of an output's time line.
[[nodiscard]] constexpr int64_t nanosecondsAtFrame(int64_t frame, int sampleRate) {
  constexpr int64_t second = 1'000'000'000;
  return frame / sampleRate * second + frame % sampleRate * second / sampleRate;
}

}  // namespace zaffo::media
