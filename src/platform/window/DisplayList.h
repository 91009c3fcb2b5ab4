// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <variant>
#include <vector>

#include "platform/coremedia/Bitmap.h"
#include "platform/uikit/CALayer.h"
#include "platform/uikit/UIView.h"

namespace zaffo::window {

/// A moving picture's clean aperture, mirrored first, then turned clockwise.
struct MovingPicture {
  CVPixelBufferPtr buffer;
  int quarterTurns = 0;
  bool mirrored = false;
};

/// Draws a colour, a still or a moving picture, stretched over `destination`, as far as it lies
/// within `visible` (which lies within `destination` and the window, and is never empty).
struct DrawCommand {
  PixelRect destination;
  PixelRect visible;
  double opacity = 1;
  std::variant<CGColor, CGImagePtr, MovingPicture> content;

  /// Whether nothing below shows through within `visible`.
  [[nodiscard]] bool isOpaque() const;
};

/// Everything that is on screen at one moment, bottom first, over black. It holds references, no
/// pixels, so that making one costs microseconds. Thread: any; immutable once made.
struct DisplayList {
  int width = 0, height = 0;  ///< pixels
  std::vector<DrawCommand> commands;
};

/// A moving picture that a display list shows, and the layer to be told when it is on screen.
struct Presentation {
  std::weak_ptr<CALayer> layer;
  CVPixelBufferPtr buffer;
};

struct DisplayListAndPresentations {
  DisplayList list;
  std::vector<Presentation> presentations;
};

/// Walks the layer tree below `root`, laid out already, for a window of `width` by `height` pixels
/// with `scale` pixels a point. Layers are asked for their picture at `hostNanoseconds` only where
/// it would be seen inside the window. What an opaque command above covers whole is left out.
/// Opacity applies to each command by itself, not to a layer and its sublayers as a group.
/// Thread: main.
[[nodiscard]] DisplayListAndPresentations makeDisplayList(const std::shared_ptr<CALayer>& root,
                                                          int width, int height, double scale,
                                                          int64_t hostNanoseconds);

}  // namespace zaffo::window
