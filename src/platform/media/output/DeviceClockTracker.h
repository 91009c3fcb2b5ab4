// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>

#include "platform/coremedia/CMAudioClock.h"

namespace zaffo::media {

/// Joins a device to the output's time line: decides which output frame the device's frame 0 stands
/// for, and steers the clock by where the device says it is.
///
///     Settling ──two reports in step with the host clock──▶ Following ──no progress──▶ Stalled
///         └───────────────────────no progress────────────────────────────────────────────▲
///
/// The clock is never moved, only its rate is (by half a percent at most), so whoever watches it
/// sees neither a jump nor a stop. A device that has lost more time than that can make up (an
/// underrun, another device behind the same stream) gets another place on the time line instead.
/// Thread: one at a time. Told the time, never asks for it.
class DeviceClockTracker {
 public:
  enum class State { Settling, Following, Stalled };

  /// Beyond this distance between device and clock the device is given another place.
  static constexpr int64_t kLargestError = 40'000'000;
  /// A device that does not move for this long has stalled.
  static constexpr int64_t kLongestStandstill = 1'000'000'000;
  /// While it settles it may take this long: a sound server may have much to play before it.
  static constexpr int64_t kLongestStart = 5'000'000'000;

  DeviceClockTracker(std::shared_ptr<CMAudioClock> clock, int sampleRate, int64_t hostNanoseconds);

  /// The device had played `framesHeard` at host time `hostNanoseconds`, both never going back.
  State report(int64_t hostNanoseconds, int64_t framesHeard);

  [[nodiscard]] State state() const { return state_; }
  /// The output frame that the device's frame 0 stands for. Meaningful while Following.
  [[nodiscard]] int64_t offset() const { return offset_; }

 private:
  void settle(int64_t host, int64_t heard);
  void follow(int64_t host, int64_t heard);
  void place(int64_t host, int64_t heard);

  const std::shared_ptr<CMAudioClock> clock_;
  const int sampleRate_;
  State state_ = State::Settling;
  int64_t offset_ = 0;

  int64_t lastHost_;
  int64_t lastHeard_ = 0;
  int64_t lastProgressHost_;
  int inStep_ = 0;
  double smoothedError_ = 0;  ///< seconds that the device is ahead of the clock
  double drift_ = 0;          ///< the device's pace against the host's, less 1
};

}  // namespace zaffo::media
