// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>

#include "platform/media/Sample.h"

namespace zaffo::media {

/// What is decoded and not shown where a composition's segment begins: from a sync sample to the
/// first frame of the segment. Told the samples on their way, it knows whether such a run is
/// under way, and how many frames have to wait so that it is over in time. Thread: one at a time.
class DecodeOnlyRun {
 public:
  /// The next sample in decode order.
  void sent(const Sample& sample) {
    if (sample.isDiscontinuity) {
      seam_ = sample.presentation;
      length_ = 0;
    }
    if (isUnderWay() && sample.decodeOnly) longest_ = std::max(longest_, ++length_);
  }
  /// A frame came out that is presented then.
  void gave(CMTime presentation) {
    if (isUnderWay() && presentation >= seam_) seam_ = kCMTimeInvalid;
  }
  /// The samples go on elsewhere.
  void leave() { seam_ = kCMTimeInvalid; }

  /// Whether a segment has begun whose first frame has not come out.
  [[nodiscard]] bool isUnderWay() const { return CMTIME_IS_VALID(seam_); }

  /// How many decoded frames more than otherwise are to wait, to last through the longest such run
  /// there has been.
  [[nodiscard]] std::size_t framesAhead() const {
    return std::min(longest_ / kDecodedInAFramesTime, kMostAhead);
  }

 private:
  static constexpr std::size_t kDecodedInAFramesTime = 8;
  static constexpr std::size_t kMostAhead = 12;

  CMTime seam_ = kCMTimeInvalid;  ///< where the segment begins
  std::size_t length_ = 0;
  std::size_t longest_ = 0;
};

}  // namespace zaffo::media
