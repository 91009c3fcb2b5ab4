// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/media/source/FileDemuxer.h"
#include "platform/media/source/IndexedTrack.h"
#include "platform/media/source/TrackHead.h"

namespace zaffo::media {

/// What a track of an MP4 or QuickTime file can be read by without its demuxer, which holds some
/// dozens of bytes for each sample of each track. Null where what the demuxer gives would be
/// something else: where it puts samples together anew, where they lie in fragments, are described
/// in more ways than one or encrypted, where the header is not what it seems. The samples that the
/// demuxer gave for `head` are what that is judged by. In the work of `task`.
[[nodiscard]] std::unique_ptr<const IndexedTrack> indexTrack(FileDemuxer& demuxer, AVStream& stream,
                                                             const TrackHead& head, ReadTask& task);

}  // namespace zaffo::media
