// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>

namespace zaffo::window {

/// Says when the next picture may be made, so that no more than one falls into a refresh interval.
/// A display that makes its presenter wait paces by itself; the interval is then only a bound.
class FramePacer {
 public:
  explicit FramePacer(int64_t intervalNanoseconds) : interval_(intervalNanoseconds) {}

  /// Nanoseconds to wait from `now`; 0 when a picture may be made at once.
  [[nodiscard]] int64_t delay(int64_t now) const { return std::max<int64_t>(0, next_ - now); }

  /// A picture was made at `now`. Pictures in a row keep to a grid, so that late wake-ups do not
  /// add up to a slower pace.
  void made(int64_t now) {
    const bool inARow = now - next_ < interval_;
    next_ = (inARow ? next_ : now) + interval_;
  }

 private:
  int64_t interval_;
  int64_t next_ = 0;
};

}  // namespace zaffo::window
