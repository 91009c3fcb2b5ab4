// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/Export.h"

namespace zaffo {

/// Lengths are in points; y grows downwards.
struct CGPoint {
  double x = 0, y = 0;
  bool operator==(const CGPoint&) const = default;
};
struct CGSize {
  double width = 0, height = 0;
  bool operator==(const CGSize&) const = default;
};
struct CGRect {
  CGPoint origin;
  CGSize size;
  bool operator==(const CGRect&) const = default;
};
inline constexpr CGPoint CGPointZero{};
inline constexpr CGSize CGSizeZero{};
inline constexpr CGRect CGRectZero{};

[[nodiscard]] constexpr CGRect CGRectMake(double x, double y, double width, double height) {
  return {{x, y}, {width, height}};
}
/// The area common to both; CGRectZero when there is none.
[[nodiscard]] ZAFFO_EXPORT CGRect CGRectIntersection(CGRect a, CGRect b);
/// The left and upper edges belong to a rectangle, the right and lower ones do not.
[[nodiscard]] ZAFFO_EXPORT bool CGRectContainsPoint(CGRect rect, CGPoint point);
[[nodiscard]] constexpr bool CGRectIsEmpty(CGRect r) {
  return !(r.size.width > 0 && r.size.height > 0);
}

/// x' = a x + c y + tx, y' = b x + d y + ty.
struct CGAffineTransform {
  double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;
  bool operator==(const CGAffineTransform&) const = default;
};
inline constexpr CGAffineTransform CGAffineTransformIdentity{};

[[nodiscard]] ZAFFO_EXPORT CGPoint CGPointApplyAffineTransform(CGPoint p, CGAffineTransform t);
/// Without the translation. A turned size may have negative sides.
[[nodiscard]] ZAFFO_EXPORT CGSize CGSizeApplyAffineTransform(CGSize s, CGAffineTransform t);
/// The bounding box of the transformed corners.
[[nodiscard]] ZAFFO_EXPORT CGRect CGRectApplyAffineTransform(CGRect r, CGAffineTransform t);
/// First `first`, then `second`.
[[nodiscard]] ZAFFO_EXPORT CGAffineTransform CGAffineTransformConcat(CGAffineTransform first,
                                                                     CGAffineTransform second);

}  // namespace zaffo
