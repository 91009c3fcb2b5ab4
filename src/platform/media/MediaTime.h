// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/coremedia/CMTime.h"
#include "platform/media/FFmpegCommon.h"

namespace zaffo::media {

/// A timestamp of FFmpeg as a CMTime, exactly wherever the time base allows it (it does for every
/// format that is played). Invalid for AV_NOPTS_VALUE and for what no media reaches: centuries.
[[nodiscard]] CMTime timeFromTimestamp(int64_t timestamp, AVRational timeBase);

/// A CMTime in units of a time base, rounded down; infinities become the extremes, and a time that
/// is no number 0.
[[nodiscard]] int64_t timestampFromTime(CMTime time, AVRational timeBase);

}  // namespace zaffo::media
