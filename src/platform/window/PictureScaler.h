#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "platform/coremedia/CVPixelBuffer.h"
#include "platform/coremedia/ColorMatrix.h"
#include "platform/uikit/CGImage.h"
#include "platform/window/Bitmap.h"
#include "platform/window/ScaleAxis.h"

namespace zaffo::window {

/// How a picture is stretched, and which part of the outcome is wanted.
struct Stretch {
  int width = 0, height = 0;  ///< what the whole picture (its clean aperture) is stretched to
  bool flippedX = false, flippedY = false;
  PixelRect part;  ///< within width by height
};

/// Scales a picture (bilinear) and converts it to BGRA in one pass over its rows, so that nothing
/// but the rows in work is ever held. Reuse one to reuse its memory. Thread: one at a time.
class PictureScaler {
 public:
  /// Writes the part of the stretched picture into `target`, which has the part's size. Every
  /// format, matrix and range; 10-bit samples stay deep until the last step.
  void scale(const CVPixelBuffer& picture, const Stretch& stretch, const Bitmap& target);
  void scale(const CGImage& image, const Stretch& stretch, const Bitmap& target);

 private:
  struct Packed;  // where the pixels of a BGRA picture are
  void scalePacked(const Packed& packed, const Stretch& stretch, const Bitmap& target);
  void prepareAxes(const CVPixelBuffer& picture, const Stretch& stretch);

  ScaleAxis lumaX_, lumaY_, chromaX_, chromaY_;
  std::vector<uint16_t> blended_;                 // a row between two source rows
  std::array<std::vector<int16_t>, 3> channels_;  // that row at the output's width
};

}  // namespace zaffo::window
