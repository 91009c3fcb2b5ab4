// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace zaffo::media {

/// Length of every fade that keeps a cut in a waveform from clicking: 5 ms at 48 kHz.
inline constexpr int kFadeFrames = 240;

/// The tail of a sound that was cut off: a few milliseconds that fade to silence.
/// Render side only; allocates nothing.
class FadeTail {
 public:
  /// Adds the next frame of what is cut off, for the frame `index` from now. The tail applies the
  /// fade itself. Indices from kFadeFrames on are silent and ignored.
  void add(int index, float left, float right);

  /// Plays the next frames into `out` (adding) and moves on.
  void mix(std::span<float> out);

  [[nodiscard]] bool sounding() const { return position_ < end_; }

 private:
  void moveToFront();

  std::array<float, 2 * kFadeFrames> samples_{};
  int position_ = 0;
  int end_ = 0;
};

}  // namespace zaffo::media
