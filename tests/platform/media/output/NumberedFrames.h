// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

namespace zaffo::media {

/// Interleaved stereo frames whose left sample is their own number and whose right sample is its
/// negative.
inline std::vector<float> numbered(int64_t first, int64_t count) {
  std::vector<float> frames;
  for (int64_t i = first; i < first + count; ++i) {
    frames.push_back(static_cast<float>(i));
    frames.push_back(-static_cast<float>(i));
  }
  return frames;
}

}  // namespace zaffo::media
