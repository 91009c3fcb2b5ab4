// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <deque>
#include <limits>

#include "platform/media/FFmpegCommon.h"
#include "platform/media/codec/AudioBlock.h"
#include "platform/media/codec/Resampler.h"

namespace zaffo::media {

/// What is heard of a decoded frame of sound.
struct HeardPart {
  int first = 0;  ///< source samples of the frame: [first, end)
  int end = 0;
  int64_t from = std::numeric_limits<int64_t>::min();  ///< and output frames: [from, until)
  int64_t until = std::numeric_limits<int64_t>::max();
};

/// Resamples sound that was decoded without interruption, and puts it in its place on a time line
/// in output frames. All that is decoded goes through the resampler, so that what is heard is right
/// up to its edges; what is not heard is cut away behind it, to the output frame.
///
/// The first sample may stand between two output frames: silence before it shifts the resampler's
/// grid until one of its samples stands on an output frame, or as close as the two rates allow
/// (1/294 of a frame from 44.1 to 48 kHz). At equal rates the sound moves to the nearest frame,
/// unchanged. Thread: one at a time.
class ResampledRun {
 public:
  explicit ResampledRun(int outputRate) : outputRate_(outputRate), resampler_(outputRate) {}

  [[nodiscard]] bool active() const { return active_; }
  /// Where the next source sample stands, in output frames. While active.
  [[nodiscard]] double end() const { return positionOf(consumed_); }
  /// Whether `frame` is of the same kind of sound.
  [[nodiscard]] bool fits(const AVFrame& frame) const { return resampler_.fits(frame); }

  /// Starts with `frame`, whose first sample stands at `position`; forgets all else. A negative
  /// AVERROR on failure.
  [[nodiscard]] int begin(const AVFrame& frame, double position);
  /// Appends `frame`, and gives what is heard and can be had now: nothing, or one block. A negative
  /// AVERROR on failure.
  [[nodiscard]] int add(const AVFrame& frame, const HeardPart& part, AudioBlock& block);
  /// Gives what is left, and ends.
  [[nodiscard]] int finish(AudioBlock& block);
  void cancel();

 private:
  struct Span {
    int64_t first = 0;
    int64_t end = 0;
  };

  [[nodiscard]] double positionOf(int64_t sourceSample) const;
  void remember(const HeardPart& part);
  void place(AudioBlock& block);
  void cutToHeard(AudioBlock& block);

  const int outputRate_;
  Resampler resampler_;
  bool active_ = false;
  int sourceRate_ = 0;
  double origin_ = 0;       ///< where the run's first sample stands, in output frames
  int64_t consumed_ = 0;    ///< source samples so far
  int64_t nextFrame_ = 0;   ///< the output frame that the resampler gives next
  std::deque<Span> heard_;  ///< output frames not given yet, rising
};

}  // namespace zaffo::media
