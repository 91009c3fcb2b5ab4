// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/uikit/CGImage.h"
#include "platform/uikit/Geometry.h"

namespace zaffo {

/// An image as views show it. Immutable and shared. Thread: any.
class ZAFFO_EXPORT UIImage {
 public:
  explicit UIImage(CGImagePtr image) : image_(std::move(image)) {}
  /// Null for null.
  [[nodiscard]] static std::shared_ptr<const UIImage> imageWithCGImage(CGImagePtr image);
  [[nodiscard]] const CGImagePtr& cgImage() const { return image_; }
  /// In points, one per pixel.
  [[nodiscard]] CGSize size() const;

 private:
  CGImagePtr image_;
};

}  // namespace zaffo
