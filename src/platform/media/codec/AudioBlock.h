// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

namespace zaffo::media {

/// Decoded sound: interleaved stereo 32-bit float at the output's sample rate.
struct AudioBlock {
  int64_t firstFrame = 0;      ///< position on the samples' time line, in output frames
  std::vector<float> samples;  ///< two per frame, left then right
  [[nodiscard]] int64_t frames() const { return static_cast<int64_t>(samples.size() / 2); }
  [[nodiscard]] int64_t end() const { return firstFrame + frames(); }
};

}  // namespace zaffo::media
