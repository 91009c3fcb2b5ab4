// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <span>
#include <vector>

namespace zaffo::media {

/// Plays interleaved stereo float faster or slower at the same pitch. What is heard at output frame
/// n lies within 5 milliseconds of input frame n * rate, from the first frame on, however long it
/// runs. Thread: one at a time.
class TimeStretch {
 public:
  /// `rate` from 0.5 to 2 (values outside are limited); output frames = input frames / rate. Never
  /// null.
  [[nodiscard]] static std::unique_ptr<TimeStretch> create(int sampleRate, double rate);
  virtual ~TimeStretch() = default;
  /// Appends what `input` gives to `output`; keeps up to a tenth of a second for the next call. Any
  /// number of frames at a time.
  virtual void process(std::span<const float> input, std::vector<float>& output) = 0;
  /// Appends what is left, so that the whole output is as long as the input divided by the rate.
  /// Call nothing afterwards.
  virtual void finish(std::vector<float>& output) = 0;
};

}  // namespace zaffo::media
