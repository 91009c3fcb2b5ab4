// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

/// Images of simple shapes with smooth edges, white unless told otherwise. Lengths in pixels.
/// Thread: any.

/// A disc that fills the image.
[[nodiscard]] CGImagePtr discImage(int diameter, CGColor color);
/// A rectangle with round corners that fills the image.
[[nodiscard]] CGImagePtr roundedImage(int width, int height, double radius, CGColor color);
/// Two upright bars on a dark disc: the video is paused.
[[nodiscard]] CGImagePtr pauseImage(int diameter);
/// Black that begins as nothing at the top and is `opacity` at the bottom; to be stretched.
[[nodiscard]] CGImagePtr shadeImage(int height, double opacity);

}  // namespace zaffo::feed
