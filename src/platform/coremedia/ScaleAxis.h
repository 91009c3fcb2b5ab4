// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include "platform/coremedia/CVPixelBuffer.h"

namespace zaffo {

/// Which two neighbouring samples of a plane, and how much of each, make an output sample: the
/// bilinear mapping of one direction. Samples outside the shown part are never read.
class ScaleAxis {
 public:
  struct Tap {
    int first = 0;         ///< index of the nearer-to-zero sample
    int secondStep = 0;    ///< 1, or 0 at the far edge, where there is no further sample
    int secondWeight = 0;  ///< of 256; the first sample has the rest
  };

  struct Mapping {
    int cropStart = 0, cropLength = 0;        ///< the shown part, in pixels of the picture
    int subsampling = 1;                      ///< pixels a sample of this plane covers: 1 or 2
    CVChromaSite site = CVChromaSite::First;  ///< where among two pixels their sample lies
    int outputLength = 0;                     ///< what the shown part is stretched to
    bool flipped = false;
    int outputStart = 0, outputCount = 0;  ///< which of the output samples are wanted
  };

  void prepare(const Mapping& mapping);

  [[nodiscard]] const Tap& operator[](int output) const {
    return taps_[static_cast<std::size_t>(output)];
  }
  [[nodiscard]] int count() const { return static_cast<int>(taps_.size()); }
  /// The range of samples that the taps touch.
  [[nodiscard]] int begin() const { return begin_; }
  [[nodiscard]] int end() const { return end_; }
  /// Whether output n is exactly sample begin() + n.
  [[nodiscard]] bool isIdentity() const { return identity_; }

 private:
  std::vector<Tap> taps_;
  int begin_ = 0, end_ = 0;
  bool identity_ = false;
};

}  // namespace zaffo
