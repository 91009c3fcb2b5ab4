// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "platform/coremedia/CMTimeRange.h"
#include "platform/uikit/Geometry.h"

namespace zaffo {

namespace media {
class SampleSource;
}

enum class AVMediaType { Video, Audio };
inline constexpr AVMediaType AVMediaTypeVideo = AVMediaType::Video;
inline constexpr AVMediaType AVMediaTypeAudio = AVMediaType::Audio;

/// One track of an asset, as the file describes it. Immutable. Thread: any.
struct AVAssetTrack {
  int trackID = 0;  ///< from 1, unique within the asset
  AVMediaType mediaType = AVMediaType::Video;
  std::string codec;   ///< FFmpeg's short name, "h264"; "none" when it is not known
  CGSize naturalSize;  ///< as shown before the transform: width counted in square pixels; zero for
                       ///< sound
  CGAffineTransform preferredTransform;  ///< natural to upright; maps into the positive quadrant
  double nominalFrameRate = 0;           ///< frames per second; 0 when not known, and for sound
  std::string languageCode;              ///< ISO 639-2/T, "und" when not told
  CMTimeScale naturalTimeScale = 0;      ///< units per second of the track's own times
  CMTimeRange timeRange;                 ///< on the asset's time line, after edits
  /// Where the platform gets its samples; gone when the asset is, empty in doubles.
  std::weak_ptr<media::SampleSource> source;
};

}  // namespace zaffo
