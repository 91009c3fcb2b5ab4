// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

namespace zaffo::feed {

/// What of the overlay is seen at which time. It is told what happens and when, in nanoseconds, and
/// knows nothing of views. Thread: one.
class OverlayTiming {
 public:
  static constexpr int64_t kShown = 2'500'000'000;  ///< before it fades
  static constexpr int64_t kVolumeShown = 1'200'000'000;
  static constexpr int64_t kFade = 300'000'000;
  static constexpr int64_t kPatience = 300'000'000;  ///< without a picture, before the spinner
  static constexpr int kSpinnerSteps = 12;           ///< a turn

  /// Opacities, from 0 to 1.
  struct Look {
    double title = 0;  ///< and the place in the feed, and the bar
    double times = 0;
    double volume = 0;
    double pause = 0;
    double spinner = 0;
    int spinnerStep = 0;
    bool operator==(const Look&) const = default;
    [[nodiscard]] bool isNothing() const { return *this == Look{}; }
  };

  /// A person did something.
  void noteActivity(int64_t now) { titleUntil_ = now + kShown; }
  void noteSeek(int64_t now);
  void noteVolume(int64_t now) { volumeUntil_ = now + kVolumeShown; }
  void setPaused(bool paused, int64_t now);
  /// There is no picture yet of what is to be seen.
  void setWaiting(bool waiting, int64_t now);

  [[nodiscard]] Look look(int64_t now) const;
  /// When the look will be another one; empty while nothing moves.
  [[nodiscard]] std::optional<int64_t> nextChange(int64_t now) const;

 private:
  int64_t titleUntil_ = 0, timesUntil_ = 0, volumeUntil_ = 0;
  bool isPaused_ = false;
  int64_t pauseUntil_ = 0;
  std::optional<int64_t> waitingSince_;
};

}  // namespace zaffo::feed
