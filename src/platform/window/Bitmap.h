#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/window/DisplayList.h"

namespace zaffo::window {

/// Pixels owned by someone else: rows of premultiplied BGRA, top down.
struct Bitmap {
  uint8_t* pixels = nullptr;
  std::ptrdiff_t stride = 0;  ///< bytes
  int width = 0, height = 0;

  [[nodiscard]] uint8_t* row(int y) const { return pixels + stride * y; }
  /// The part within `rect`, which must lie inside.
  [[nodiscard]] Bitmap part(const PixelRect& rect) const {
    return {row(rect.y) + std::ptrdiff_t{4} * rect.x, stride, rect.width, rect.height};
  }
};

}  // namespace zaffo::window
