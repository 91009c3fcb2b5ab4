#pragma once

#include <cstdint>
#include <vector>

#include "platform/window/Bitmap.h"
#include "platform/window/DisplayList.h"
#include "platform/window/PictureScaler.h"

namespace zaffo::window {

/// Draws a display list into memory. Moving pictures are scaled and converted in one pass straight
/// into the target. Thread: one at a time.
class SoftwareRenderer {
 public:
  /// Overwrites the whole target; what lies outside the list's size is left black.
  void draw(const DisplayList& list, const Bitmap& target);

 private:
  void drawImage(const DrawCommand& command, const CGImage& image, const Bitmap& target);
  void drawPicture(const DrawCommand& command, const MovingPicture& picture, const Bitmap& target);
  [[nodiscard]] Bitmap scratch(std::vector<uint8_t>& memory, int width, int height);

  PictureScaler scaler_;
  std::vector<uint8_t> scaled_;
  std::vector<uint8_t> turned_;
};

/// Fills `target` with a colour of the given opacity.
void fillBitmap(const Bitmap& target, const CGColor& color, double opacity);

/// Draws `source` over `target`, of the same size.
void blendBitmap(const Bitmap& source, double opacity, const Bitmap& target);

/// Exchanges rows and columns: `target` is as wide as `source` is high.
void transposeBitmap(const Bitmap& source, const Bitmap& target);

}  // namespace zaffo::window
