// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace zaffo {

/// A rectangle of whole pixels, y down.
struct PixelRect {
  int x = 0, y = 0, width = 0, height = 0;
  bool operator==(const PixelRect&) const = default;

  [[nodiscard]] int right() const { return x + width; }
  [[nodiscard]] int bottom() const { return y + height; }
  [[nodiscard]] bool isEmpty() const { return width <= 0 || height <= 0; }
  [[nodiscard]] bool contains(const PixelRect& o) const {
    return o.x >= x && o.y >= y && o.right() <= right() && o.bottom() <= bottom();
  }
  [[nodiscard]] PixelRect intersection(const PixelRect& o) const {
    const int left = std::max(x, o.x), top = std::max(y, o.y);
    return {left, top, std::max(0, std::min(right(), o.right()) - left),
            std::max(0, std::min(bottom(), o.bottom()) - top)};
  }
};

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

}  // namespace zaffo
