// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>

namespace zaffo::media {

/// What a source has at hand behind the place where reading has come to. Of local storage, all.
struct BufferedAhead {
  bool isAll = true;   ///< also what lies before the place
  bool isRest = true;  ///< all that follows
  bool isFull = true;  ///< no more is brought until some of it is read
  double seconds = 0;  ///< where that is not the rest: at the average rate of the whole

  /// What both have.
  [[nodiscard]] BufferedAhead with(const BufferedAhead& other) const {
    const double least = isRest         ? other.seconds
                         : other.isRest ? seconds
                                        : std::min(seconds, other.seconds);
    return {isAll && other.isAll, isRest && other.isRest, isFull && other.isFull, least};
  }
};

}  // namespace zaffo::media
