// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/media/FFmpegCommon.h"
#include "platform/media/Sample.h"

namespace zaffo::media {

struct IndexedTrack;

/// What is known of a track once its file was opened, and kept for as long as it is open. To that
/// belong its first samples in decode order: so a player shows its first frame, and a loop goes
/// back to its start, without waiting for the disk. Thread: any, unchanged once made.
struct TrackHead {
  /// Enough of a picture track for the first frame of a loop, which lies 0.05 s into the file.
  static constexpr std::size_t kMostSamples = 8;
  /// The first sample is kept however large it is.
  static constexpr int kMostBytes = 512 * 1024;

  std::vector<Sample> samples;  ///< none where they were not read, or could not be
  CodecParametersPtr parameters;
  AVRational timeBase{};          ///< of the stream
  int64_t timelineStart = 0;      ///< as FileDemuxer::timelineStart
  bool tellsDecodeTimes = false;  ///< as FileDemuxer::tellsDecodeTimes
  /// What all samples are read by; null where that takes a demuxer.
  std::shared_ptr<const IndexedTrack> indexed;
};

}  // namespace zaffo::media
