// SPDX-License-Identifier: Apache-2.0
#include "platform/streaming/RenditionChoice.h"

#include <algorithm>

namespace zaffo::streaming {

/// The highest that leaves room; the lowest when none does.
std::size_t RenditionChoice::fitting(double throughput) const {
  const auto above = std::ranges::find_if(
      renditions_, [&](int64_t bits) { return static_cast<double>(bits) > throughput * kShare; });
  const auto count = static_cast<std::size_t>(above - renditions_.begin());
  return count == 0 ? 0 : count - 1;
}

std::size_t RenditionChoice::first(std::optional<double> throughput) const {
  return fitting(throughput.value_or(kUnmeasured));
}

std::size_t RenditionChoice::next(const Present& present) const {
  if (!present.bitsPerSecond) return present.rendition;
  const std::size_t wanted = fitting(*present.bitsPerSecond);
  if (wanted > present.rendition) {
    return present.secondsAhead >= kSecondsToRise ? wanted : present.rendition;
  }
  const auto bits = static_cast<double>(renditions_[present.rendition]);
  const bool keepsUp = bits <= *present.bitsPerSecond;
  return keepsUp && present.secondsAhead >= kSecondsToStay ? present.rendition : wanted;
}

}  // namespace zaffo::streaming
