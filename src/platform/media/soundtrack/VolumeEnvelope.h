// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "platform/coremedia/CMTimeRange.h"

namespace zaffo::media {

/// A volume over a stretch of time: linear from `start` to `end`, then `end` holds until the next
/// ramp begins.
struct VolumeRamp {
  CMTimeRange range;
  float start = 1;
  float end = 1;
};

/// The volume ramps of one sound track, by rising start and not overlapping.
struct TrackVolume {
  int trackID = 0;
  std::vector<VolumeRamp> ramps;
};

/// How loud a track is at each output frame of its time line: 1 before the first ramp. A ramp holds
/// for the frames that lie in its range, each at the volume of its own time. Immutable.
class VolumeEnvelope {
 public:
  /// Full volume throughout.
  VolumeEnvelope() = default;
  VolumeEnvelope(std::span<const VolumeRamp> ramps, int sampleRate);

  /// Scales interleaved stereo that begins with frame `firstFrame`.
  void apply(int64_t firstFrame, std::span<float> interleaved) const;

 private:
  struct Piece {
    int64_t first = 0;      ///< the first frame at or after the start
    int64_t rampEnd = 0;    ///< the first frame at or after the end of the ramp
    double startFrame = 0;  ///< where the ramp begins, between frames too
    double slope = 0;       ///< per frame
    float start = 1;
    float end = 1;
  };

  std::vector<Piece> pieces_;
};

}  // namespace zaffo::media
