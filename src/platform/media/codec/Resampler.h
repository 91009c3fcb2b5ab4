// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "platform/media/FFmpegCommon.h"

namespace zaffo::media {

/// Turns decoded sound of any layout, sample format and rate into interleaved stereo float at one
/// rate. Mono goes to both sides at full level; more channels are mixed down so that no sum clips.
/// Thread: one at a time.
class Resampler {
 public:
  explicit Resampler(int outputRate) : outputRate_(outputRate) {}
  ~Resampler();
  Resampler(const Resampler&) = delete;
  Resampler& operator=(const Resampler&) = delete;

  /// Whether it is set up for sound like `frame`.
  [[nodiscard]] bool fits(const AVFrame& frame) const;
  /// Sets up for sound like `frame` and forgets what it holds; a negative AVERROR on failure.
  [[nodiscard]] int prepare(const AVFrame& frame);
  /// Puts `count` samples of silence at the input's rate before what is converted next.
  [[nodiscard]] int injectSilence(int count);

  /// Puts what `frame` gives into `output`, replacing it; keeps a little for the next call. A
  /// negative AVERROR on failure.
  [[nodiscard]] int convert(const AVFrame& frame, std::vector<float>& output);
  /// Puts what is left into `output`, replacing it. Needs prepare() before the next convert().
  [[nodiscard]] int finish(std::vector<float>& output);

 private:
  [[nodiscard]] int run(const uint8_t** input, int count, std::vector<float>& output);

  const int outputRate_;
  SwrPtr context_;
  AVChannelLayout layout_{};
  int format_ = -1;
  int rate_ = 0;
};

}  // namespace zaffo::media
