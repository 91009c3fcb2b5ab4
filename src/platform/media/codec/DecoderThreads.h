// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>

namespace zaffo::media {

/// What decoding a track in time takes. A rate of 0 or less is not known, and taken for 30 a
/// second.
struct DecoderLoad {
  int width = 0, height = 0;
  double framesPerSecond = 0;
};

/// How many threads a decoder gets: the least that keep up, since each costs memory and none makes
/// the first picture come sooner. One decodes 1080p30 with room to spare.
[[nodiscard]] constexpr int decoderThreads(const DecoderLoad& load, unsigned cores) {
  constexpr double kPixelsPerSecond = 1920.0 * 1088 * 33;
  constexpr double kUnknownRate = 30;
  constexpr int kMost = 4;
  const double rate = load.framesPerSecond > 0 ? load.framesPerSecond : kUnknownRate;
  const double needed = rate * load.width * load.height / kPixelsPerSecond;
  const int most = static_cast<int>(std::clamp<unsigned>(cores, 1, kMost));
  int threads = 1;
  while (threads < most && threads < needed) ++threads;
  return threads;
}

}  // namespace zaffo::media
