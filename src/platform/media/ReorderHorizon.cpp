// SPDX-License-Identifier: Apache-2.0
#include "platform/media/ReorderHorizon.h"

#include <algorithm>
#include <functional>

namespace zaffo::media {

void ReorderHorizon::pass(const Sample& sample) {
  if (CMTIME_IS_NUMERIC(sample.decode)) {
    // Nothing is presented before it is decoded.
    time_ = CMTimeMaximum(time_, sample.decode);
    return;
  }
  if (!CMTIME_IS_NUMERIC(sample.presentation)) return;
  const auto place = std::ranges::upper_bound(latest_, sample.presentation, std::greater<>());
  latest_.insert(place, sample.presentation);
  if (latest_.size() < kBeyondReordering) return;
  latest_.resize(kBeyondReordering);
  time_ = CMTimeMaximum(time_, latest_.back());
}

}  // namespace zaffo::media
