// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/coremedia/CVPixelBuffer.h"
#include "platform/foundation/Result.h"
#include "platform/uikit/CGImage.h"
#include "platform/uikit/Geometry.h"

namespace zaffo::media {

/// Makes a still picture of `width` x `height` pixels of what a pixel buffer shows, with its matrix
/// and range honoured. Fails when the size is not one that can be scaled to.
Result<CGImagePtr> makeImage(const CVPixelBuffer& buffer, int width, int height);

/// Turns a picture by quarter turns and mirrors it, as `transform` says. Transforms of another kind
/// leave it as it is.
[[nodiscard]] CGImagePtr turnedImage(CGImagePtr image, CGAffineTransform transform);

/// Whether `transform` consists of quarter turns and mirrors only.
[[nodiscard]] bool isQuarterTurn(CGAffineTransform transform);

}  // namespace zaffo::media
