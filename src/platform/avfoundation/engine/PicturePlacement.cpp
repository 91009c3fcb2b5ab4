// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/PicturePlacement.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace zaffo {

namespace {

struct Orientation {
  int quarterTurns = 0;
  bool mirrored = false;
};

/// The nearest turn by quarters, with or without a flip before it, that a transform stands for.
Orientation orientationOf(CGAffineTransform t) {
  const bool mirrored = t.a * t.d - t.b * t.c < 0;
  const double a = mirrored ? -t.a : t.a;
  const double b = mirrored ? -t.b : t.b;
  if (std::abs(a) >= std::abs(b)) return {a >= 0 ? 0 : 2, mirrored};
  return {b > 0 ? 1 : 3, mirrored};
}

CGRect fitted(CGSize picture, CGRect bounds, AVLayerVideoGravity gravity) {
  if (gravity == AVLayerVideoGravity::Resize || picture.width <= 0 || picture.height <= 0) {
    return bounds;
  }
  const double horizontal = bounds.size.width / picture.width;
  const double vertical = bounds.size.height / picture.height;
  const double scale = gravity == AVLayerVideoGravity::ResizeAspect
                           ? std::min(horizontal, vertical)
                           : std::max(horizontal, vertical);
  const CGSize size{picture.width * scale, picture.height * scale};
  return CGRectMake(bounds.origin.x + (bounds.size.width - size.width) / 2,
                    bounds.origin.y + (bounds.size.height - size.height) / 2, size.width,
                    size.height);
}

}  // namespace

LayerPicture placePicture(CVPixelBufferPtr buffer, CGAffineTransform preferredTransform,
                          CGRect bounds, AVLayerVideoGravity gravity) {
  const Orientation orientation = orientationOf(preferredTransform);
  CGSize size{buffer->cropWidth * buffer->pixelAspectRatio,
              static_cast<double>(buffer->cropHeight)};
  if (orientation.quarterTurns % 2 != 0) std::swap(size.width, size.height);
  return {std::move(buffer), fitted(size, bounds, gravity), orientation.quarterTurns,
          orientation.mirrored};
}

}  // namespace zaffo
