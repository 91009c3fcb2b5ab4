// SPDX-License-Identifier: Apache-2.0
#include "platform/uikit/UIImage.h"

namespace zaffo {

std::shared_ptr<const UIImage> UIImage::imageWithCGImage(CGImagePtr image) {
  if (!image) return nullptr;
  return std::make_shared<const UIImage>(std::move(image));
}

CGSize UIImage::size() const {
  return {static_cast<double>(CGImageGetWidth(image_)),
          static_cast<double>(CGImageGetHeight(image_))};
}

}  // namespace zaffo
