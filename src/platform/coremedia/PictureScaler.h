// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/Export.h"
#include "platform/coremedia/Bitmap.h"
#include "platform/coremedia/CVPixelBuffer.h"

namespace zaffo {

/// How a picture is laid out in pixels, and which part of the outcome is wanted.
struct PictureLayout {
  /// What the whole picture (its clean aperture) measures once it is turned and stretched.
  int width = 0, height = 0;
  int quarterTurns = 0;   ///< clockwise turns of 90 degrees, 0 to 3
  bool mirrored = false;  ///< flipped left to right before it is turned
  PixelRect part;         ///< within width by height
};

/// Scales a picture (bilinear), turns it and converts it to BGRA in one pass over its rows, so that
/// nothing but the rows in work is ever held. Every format, matrix and range; 10-bit samples stay
/// deep until the last step. Reuse one to reuse its memory. Thread: one at a time.
class ZAFFO_EXPORT PictureScaler {
 public:
  PictureScaler();
  ~PictureScaler();
  PictureScaler(const PictureScaler&) = delete;
  PictureScaler& operator=(const PictureScaler&) = delete;

  /// Writes the part of the laid out picture into `target`, which has the part's size. The clean
  /// aperture is not empty and lies within the coded size.
  void scale(const CVPixelBuffer& picture, const PictureLayout& layout, const Bitmap& target);

 private:
  struct Pass;
  const std::unique_ptr<Pass> pass_;
};

}  // namespace zaffo
