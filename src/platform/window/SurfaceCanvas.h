// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "platform/foundation/Result.h"
#include "platform/window/Canvas.h"
#include "platform/window/SDLCommon.h"
#include "platform/window/SoftwareRenderer.h"

namespace zaffo::window {

/// Draws in memory and hands the pixels to the display: for machines without a graphics processor.
/// Thread: render thread.
class SurfaceCanvas : public Canvas {
 public:
  /// The window must outlive the canvas.
  static Result<std::unique_ptr<Canvas>> create(SDL_Window* window);
  explicit SurfaceCanvas(SDL_Window* window) : window_(window) {}

  void draw(const DisplayList& list) override;
  void show() override;

 private:
  SDL_Window* window_;
  SoftwareRenderer renderer_;
  std::vector<uint8_t> pixels_;  // for displays with another layout of pixels
};

}  // namespace zaffo::window
