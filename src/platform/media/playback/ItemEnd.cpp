// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/ItemEnd.h"

namespace zaffo::media {

std::optional<CMTime> endOfItem(CMTime duration, const std::optional<DataEnd>& pictures,
                                const std::optional<DataEnd>& sound) {
  const bool isTold = CMTIME_IS_NUMERIC(duration) && duration > kCMTimeZero;
  const std::optional<CMTime> told = isTold ? std::optional(duration) : std::nullopt;
  const bool isOver = (!pictures || pictures->isOver) && (!sound || sound->isOver);
  if (!isOver) return told;
  const bool isSoundEndKnown = !sound || sound->end;
  if (!isSoundEndKnown && (told || !pictures)) return told;
  const CMTime picturesEnd = pictures ? pictures->end.value_or(kCMTimeZero) : kCMTimeZero;
  const CMTime soundEnd = sound ? sound->end.value_or(kCMTimeZero) : kCMTimeZero;
  const CMTime end = CMTimeMaximum(picturesEnd, soundEnd);
  return told ? CMTimeMinimum(end, *told) : end;
}

}  // namespace zaffo::media
