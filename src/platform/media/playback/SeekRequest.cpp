// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/SeekRequest.h"

namespace zaffo::media {

namespace {

/// How far from its target a seek may end.
CMTime reachOf(CMTime tolerance) {
  if (CMTIME_IS_NUMERIC(tolerance)) return CMTimeAbsoluteValue(tolerance);
  return CMTIME_IS_POSITIVE_INFINITY(tolerance) ? tolerance : kCMTimeZero;
}

}  // namespace

SeekRequest::SeekRequest(CMTime target, CMTime before, CMTime after, Completion completion)
    : target_(target),
      earliest_(target - reachOf(before)),
      latest_(target + reachOf(after)),
      completion_(std::move(completion)) {}

CMTime SeekRequest::positionWith(CMTime presentation) const {
  const bool willDo =
      CMTIME_IS_VALID(presentation) && presentation >= earliest_ && presentation <= latest_;
  return willDo ? CMTimeMaximum(presentation, kCMTimeZero) : target_;
}

}  // namespace zaffo::media
