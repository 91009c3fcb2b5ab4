// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/SampleSource.h"

#include <algorithm>

#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/foundation/MakeError.h"

namespace zaffo::media {

NSErrorPtr SampleSource::whyNotPlayed() const {
  for (const AVMediaType type : {AVMediaTypeVideo, AVMediaTypeAudio}) {
    const auto track =
        std::ranges::find(tracks(), type, [](const auto& one) { return one->mediaType; });
    if (track != tracks().end()) return whyNotDecoded((*track)->trackID);
  }
  return makeError(AVErrorUnknown, "There is neither picture nor sound in it.");
}

}  // namespace zaffo::media
