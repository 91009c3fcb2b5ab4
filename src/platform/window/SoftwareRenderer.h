// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "platform/coremedia/Bitmap.h"
#include "platform/coremedia/PictureScaler.h"
#include "platform/window/DisplayList.h"

namespace zaffo::window {

/// Draws a display list into memory. Moving pictures are scaled and converted in one pass straight
/// into the target. Thread: one at a time.
class SoftwareRenderer {
 public:
  /// Overwrites the whole target; what lies outside the list's size is left black.
  void draw(const DisplayList& list, const Bitmap& target);

 private:
  /// As `layout` turns it, where the command says.
  void drawPicture(const DrawCommand& command, const CVPixelBuffer& buffer, PictureLayout layout,
                   const Bitmap& target);
  [[nodiscard]] Bitmap scratch(int width, int height);

  PictureScaler scaler_;
  std::vector<uint8_t> drawn_;
};

/// Fills `target` with a colour of the given opacity.
void fillBitmap(const Bitmap& target, const CGColor& color, double opacity);

/// Draws `source` over `target`, of the same size.
void blendBitmap(const Bitmap& source, double opacity, const Bitmap& target);

}  // namespace zaffo::window
