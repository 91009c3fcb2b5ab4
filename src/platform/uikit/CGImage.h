// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/Export.h"
#include "platform/foundation/NSError.h"

namespace zaffo {

/// An image: 8 bit BGRA, alpha premultiplied, rows top down. Immutable and shared. Thread: any.
class ZAFFO_EXPORT CGImage {
 public:
  /// `pixels` holds height rows of `stride` bytes, stride >= 4 * width. If it does not, or a side
  /// is not positive, the image is empty: 0 x 0 pixels.
  CGImage(int width, int height, std::size_t stride, std::vector<uint8_t> pixels);

  [[nodiscard]] int width() const { return width_; }
  [[nodiscard]] int height() const { return height_; }
  [[nodiscard]] std::size_t stride() const { return stride_; }
  [[nodiscard]] const uint8_t* pixels() const { return pixels_.data(); }

  /// Writes a PNG file: 8 bit sRGB, with an alpha channel (not premultiplied) unless the image is
  /// opaque. Blocks. Returns null, or what failed, in which case it leaves no file behind: domain
  /// "NSPOSIXErrorDomain" with the code of errno (EINVAL for an empty image).
  [[nodiscard]] NSErrorPtr writePNG(const std::string& path) const;

 private:
  int width_, height_;
  std::size_t stride_;
  std::vector<uint8_t> pixels_;
};

using CGImagePtr = std::shared_ptr<const CGImage>;

/// 0 for a null image.
[[nodiscard]] inline int CGImageGetWidth(const CGImagePtr& i) {
  return i ? i->width() : 0;
}
[[nodiscard]] inline int CGImageGetHeight(const CGImagePtr& i) {
  return i ? i->height() : 0;
}

}  // namespace zaffo
