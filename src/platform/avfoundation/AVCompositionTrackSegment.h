// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/coremedia/CMTimeRange.h"

namespace zaffo {

/// A stretch of a composition's track: a range of a source's track, or nothing. Immutable.
struct AVCompositionTrackSegment {
  /// The track shown or heard; null for an empty segment.
  std::shared_ptr<const AVAssetTrack> sourceTrack;
  CMTimeRange source;  ///< on the source's time line; of the target's length for an empty segment
  CMTimeRange target;  ///< on the composition's time line

  [[nodiscard]] bool isEmpty() const { return !sourceTrack; }
};

}  // namespace zaffo
