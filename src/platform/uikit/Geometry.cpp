// SPDX-License-Identifier: Apache-2.0
#include "platform/uikit/Geometry.h"

#include <algorithm>

namespace zaffo {

CGRect CGRectIntersection(CGRect a, CGRect b) {
  const double left = std::max(a.origin.x, b.origin.x);
  const double top = std::max(a.origin.y, b.origin.y);
  const double right = std::min(a.origin.x + a.size.width, b.origin.x + b.size.width);
  const double bottom = std::min(a.origin.y + a.size.height, b.origin.y + b.size.height);
  if (!(right > left && bottom > top)) return CGRectZero;
  return CGRectMake(left, top, right - left, bottom - top);
}

bool CGRectContainsPoint(CGRect rect, CGPoint point) {
  return point.x >= rect.origin.x && point.x < rect.origin.x + rect.size.width &&
         point.y >= rect.origin.y && point.y < rect.origin.y + rect.size.height;
}

CGPoint CGPointApplyAffineTransform(CGPoint p, CGAffineTransform t) {
  return {t.a * p.x + t.c * p.y + t.tx, t.b * p.x + t.d * p.y + t.ty};
}

CGSize CGSizeApplyAffineTransform(CGSize s, CGAffineTransform t) {
  return {t.a * s.width + t.c * s.height, t.b * s.width + t.d * s.height};
}

CGRect CGRectApplyAffineTransform(CGRect r, CGAffineTransform t) {
  const double left = r.origin.x, top = r.origin.y;
  const double right = left + r.size.width, bottom = top + r.size.height;
  const CGPoint corners[] = {CGPointApplyAffineTransform({left, top}, t),
                             CGPointApplyAffineTransform({right, top}, t),
                             CGPointApplyAffineTransform({left, bottom}, t),
                             CGPointApplyAffineTransform({right, bottom}, t)};
  CGPoint least = corners[0], most = corners[0];
  for (const CGPoint& corner : corners) {
    least = {std::min(least.x, corner.x), std::min(least.y, corner.y)};
    most = {std::max(most.x, corner.x), std::max(most.y, corner.y)};
  }
  return CGRectMake(least.x, least.y, most.x - least.x, most.y - least.y);
}

CGAffineTransform CGAffineTransformConcat(CGAffineTransform first, CGAffineTransform second) {
  const CGAffineTransform &f = first, &s = second;
  return {f.a * s.a + f.b * s.c, f.a * s.b + f.b * s.d,          f.c * s.a + f.d * s.c,
          f.c * s.b + f.d * s.d, f.tx * s.a + f.ty * s.c + s.tx, f.tx * s.b + f.ty * s.d + s.ty};
}

}  // namespace zaffo
