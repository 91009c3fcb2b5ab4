#pragma once

#include <memory>
#include <span>
#include <vector>

namespace zaffo::media {

/// Plays interleaved stereo float faster or slower at the same pitch. Thread: one at a time.
class TimeStretch {
 public:
  /// `rate` from 0.5 to 2; output frames = input frames / rate.
  [[nodiscard]] static std::unique_ptr<TimeStretch> create(int sampleRate, double rate);
  virtual ~TimeStretch() = default;
  /// Appends what `input` gives to `output`; keeps a little for the next call.
  virtual void process(std::span<const float> input, std::vector<float>& output) = 0;
  /// Appends what is left.
  virtual void finish(std::vector<float>& output) = 0;
};

}  // namespace zaffo::media
