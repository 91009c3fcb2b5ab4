// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/coremedia/CVPixelBuffer.h"

namespace zaffo {

/// Converts the clean aperture of `buffer`, in any CVPixelFormat, to 8 bit BGRA: cropHeight rows of
/// cropWidth pixels, `stride` bytes from one row to the next, at `destination`. Opaque, except that
/// BGRA is copied with its alpha.
///
/// Honours the matrix and the range of the buffer; components are within 1 of what the formula of
/// the standards gives in exact arithmetic. Chroma that is halved is interpolated linearly from
/// where the buffer says that its samples lie. What it needs of the picture beyond the clean
/// aperture it takes from there; beyond the coded picture it repeats the edge.
///
/// Writes nothing when the clean aperture is empty or reaches beyond the coded size, or a plane is
/// missing. One thread, no allocation; about a nanosecond a pixel. Thread: any.
ZAFFO_EXPORT void convertToBGRA(const CVPixelBuffer& buffer, uint8_t* destination,
                                std::ptrdiff_t stride);

}  // namespace zaffo
