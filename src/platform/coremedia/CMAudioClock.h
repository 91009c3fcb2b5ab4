// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/coremedia/CMClock.h"

namespace zaffo {

/// A sound device's clock, which is told where the device is: each anchor says what the device had
/// played at some host time. Between anchors the clock runs on at the rate last told.
///
/// Where an anchor disagrees with what the clock shows, the clock keeps what it shows and bends:
///
///     up to 100 ms       runs up to 5 % faster or slower until it agrees, for at least 200 ms
///     more, device ahead jumps forward at once
///     more, device behind stands still until the device has caught up
///
/// Thus it never goes back: of two reads at rising host times that are not in the future, the later
/// one is not the smaller, whatever anchors come between them. It remembers the last dozen anchors;
/// for host times before those it gives what it showed at the first of them.
///
/// Reads take no lock; one that meets an anchor being set tries again. Thread: any.
class ZAFFO_EXPORT CMAudioClock final : public CMClock {
 public:
  /// Shows 0, and stands still until the first anchor.
  [[nodiscard]] static std::shared_ptr<CMAudioClock> create();

  /// Tells that the device had played `deviceNanoseconds` at host time `hostNanoseconds`
  /// (TimeSource) and goes on at `rate` device seconds a host second. The first anchor is adopted
  /// as it is, if it is not behind 0. A rate that is negative or not finite counts as 0.
  ///
  /// Never waits and allocates nothing, so that a sound callback may call it. An anchor that comes
  /// while another thread is setting one is dropped: the other is as good.
  void setAnchor(int64_t deviceNanoseconds, int64_t hostNanoseconds, double rate = 1);

  [[nodiscard]] int64_t nanosecondsAtHostTime(int64_t hostNanoseconds) const override;

  /// INT64_MAX for a time that is never reached at the present rate.
  [[nodiscard]] int64_t hostTimeAtNanoseconds(int64_t nanoseconds) const override;

 private:
  /// From `host` on, the clock shows `value` and advances at `rate`, until the next piece.
  struct Piece {
    int64_t host = 0;
    int64_t value = 0;
    double rate = 0;

    [[nodiscard]] int64_t valueAt(int64_t hostNanoseconds) const;
    [[nodiscard]] int64_t hostAt(int64_t nanoseconds) const;
  };
  /// By rising host time: what it showed at the last anchors before the last one, how it bends
  /// towards that, and how it goes on.
  using Line = std::array<Piece, 16>;
  struct Course {
    Piece bent, after;
  };

  struct AtomicPiece {
    std::atomic<int64_t> host{0};
    std::atomic<int64_t> value{0};
    std::atomic<double> rate{0};
  };

  CMAudioClock() = default;

  static std::size_t indexAt(const Line& line, int64_t hostNanoseconds);
  static int64_t valueOn(const Line& line, int64_t hostNanoseconds);
  static Course bend(int64_t shown, const Piece& device, int64_t now);
  [[nodiscard]] Line line() const;
  void store(const Line& line);

  // A sequence lock: odd while a writer is at work; readers retry when it changed meanwhile.
  std::atomic<uint64_t> sequence_{0};
  std::array<AtomicPiece, std::tuple_size_v<Line>> pieces_;
  std::atomic<bool> anchored_{false};
};

/// The status of CMAudioClockCreate when it is not told where to put the clock.
inline constexpr int32_t kCMClockError_MissingRequiredParameter = -12745;

/// Makes a clock that shows 0 now and runs with the host's monotonic time (TimeSource) until a
/// sound device anchors it. It stands on no device: making it opens none and takes no time. Returns
/// 0 with `*clockOut` set, or a status other than 0 that tells why there is no clock.
[[nodiscard]] ZAFFO_EXPORT int32_t CMAudioClockCreate(std::shared_ptr<CMAudioClock>* clockOut);

}  // namespace zaffo
