// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/media/FFmpegCommon.h"

namespace zaffo::media {

/// Whether a stream becomes a track: picture and sound do; cover art, subtitles and data do not.
[[nodiscard]] bool isTrack(const AVStream& stream);

/// What the header of a file says of one of its streams. `timelineStart` is the timestamp, in the
/// stream's time base, that becomes time zero of the asset; `indexIsComplete`
/// whether the stream's index names every sample of the file. The source is left to the caller.
[[nodiscard]] std::shared_ptr<AVAssetTrack> describeTrack(AVFormatContext& context,
                                                          AVStream& stream, int64_t timelineStart,
                                                          bool indexIsComplete);

}  // namespace zaffo::media
