// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "platform/media/Sample.h"

namespace zaffo::media {

/// Decode order against display order: told the samples of a track as they come in decode order,
/// it knows until when nothing can follow any more. Thread: one at a time.
class ReorderHorizon {
 public:
  /// The next sample in decode order.
  void pass(const Sample& sample);

  /// No sample that follows is presented before this time, which never goes back. Negative infinity
  /// while nothing is known.
  [[nodiscard]] CMTime time() const { return time_; }

 private:
  /// More samples than any codec lets come between one and another that is presented before it: for
  /// where it is not told when samples are decoded.
  static constexpr std::size_t kBeyondReordering = 17;

  CMTime time_ = kCMTimeNegativeInfinity;
  std::vector<CMTime> latest_;  ///< presentations, the latest first, of samples without decode time
};

}  // namespace zaffo::media
