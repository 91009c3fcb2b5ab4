// SPDX-License-Identifier: Apache-2.0
#include "platform/coremedia/ScaleAxis.h"

#include <algorithm>
#include <cmath>

namespace zaffo {

void ScaleAxis::prepare(const Mapping& m) {
  const int firstSample = m.cropStart / m.subsampling;
  const int lastSample = (m.cropStart + m.cropLength - 1) / m.subsampling;
  const double pixelsPerOutput = static_cast<double>(m.cropLength) / m.outputLength;
  // The centres of pixels lie at halves.
  const double firstCentre = m.subsampling == 1 ? 0.5 : 0.5 + halfPixelsFromFirst(m.site) / 2.0;

  taps_.resize(static_cast<std::size_t>(m.outputCount));
  begin_ = lastSample;
  end_ = firstSample;
  identity_ = true;
  for (int n = 0; n < m.outputCount; ++n) {
    const int output = m.flipped ? m.outputLength - 1 - (m.outputStart + n) : m.outputStart + n;
    const double pixel = m.cropStart + (output + 0.5) * pixelsPerOutput;
    const double position = (pixel - firstCentre) / m.subsampling;
    const double inside = std::clamp<double>(position, firstSample, lastSample);
    const int first = static_cast<int>(inside);
    const int weight = static_cast<int>(std::lround((inside - first) * 256));
    const int step = first < lastSample ? 1 : 0;
    taps_[static_cast<std::size_t>(n)] = {first, step, weight};
    begin_ = std::min(begin_, first);
    end_ = std::max(end_, first + step + 1);
    identity_ = identity_ && weight == 0 && first == taps_[0].first + n;
  }
}

}  // namespace zaffo
