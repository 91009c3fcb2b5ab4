// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/Export.h"

namespace zaffo {

/// How samples lie in memory. Planar formats are Y, U, V in that order; "10" means 10 significant
/// low bits in 16-bit little-endian words.
enum class CVPixelFormat {
  I420,  ///< 8 bit, chroma halved in both directions
  I422,  ///< 8 bit, chroma halved horizontally
  I444,  ///< 8 bit
  I420P10,
  I422P10,
  I444P10,
  NV12,  ///< 8 bit, Y then interleaved UV halved in both directions
  P010,  ///< 10 bit in the high bits of 16, Y then interleaved UV
  Gray8,
  BGRA,  ///< 8 bit, alpha premultiplied; bytes in memory: B, G, R, A
};

enum class CVColorMatrix { BT601, BT709, BT2020 };
enum class CVColorRange { Limited, Full };

/// Where a sample of halved chroma lies, along one direction: on the first of the two pixels that
/// share it, between them, or on the second.
enum class CVChromaSite { First, Middle, Second };

/// How far from the centre of the first of its two pixels that is, in halves of a pixel. Whatever
/// interpolates chroma goes by this.
[[nodiscard]] constexpr int halfPixelsFromFirst(CVChromaSite site) {
  return site == CVChromaSite::First ? 0 : site == CVChromaSite::Middle ? 1 : 2;
}

/// One picture by reference: what a decoder made, in the decoder's own format. Immutable and
/// shared; the memory lives as long as the object. Thread: any.
struct CVPixelBuffer {
  struct Plane {
    const uint8_t* data = nullptr;
    std::ptrdiff_t stride = 0;  ///< bytes from one row to the next
  };

  CVPixelFormat format = CVPixelFormat::I420;
  int width = 0;   ///< coded pixels
  int height = 0;  ///< coded pixels
  std::array<Plane, 3> planes{};
  CVColorMatrix matrix = CVColorMatrix::BT709;
  CVColorRange range = CVColorRange::Limited;
  /// What the coded formats mean unless they say otherwise.
  CVChromaSite chromaSiteX = CVChromaSite::First, chromaSiteY = CVChromaSite::Middle;

  /// Clean aperture, in coded pixels: the part that is shown.
  int cropLeft = 0, cropTop = 0, cropWidth = 0, cropHeight = 0;
  /// Width of one pixel divided by its height.
  double pixelAspectRatio = 1.0;

  std::shared_ptr<const void> owner;  ///< keeps the planes' memory alive
};

using CVPixelBufferPtr = std::shared_ptr<const CVPixelBuffer>;

}  // namespace zaffo
