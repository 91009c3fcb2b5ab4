// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "platform/avfoundation/AVAsset.h"
#include "platform/avfoundation/AVCompositionTrackSegment.h"
#include "platform/coremedia/CMTimeRange.h"

namespace zaffo {

/// A track under construction. Abstract so that a test can script it. Thread: that of its
/// composition.
class ZAFFO_EXPORT AVMutableCompositionTrack {
 public:
  virtual ~AVMutableCompositionTrack() = default;

  [[nodiscard]] virtual int trackID() const = 0;
  [[nodiscard]] virtual AVMediaType mediaType() const = 0;
  [[nodiscard]] virtual CGAffineTransform preferredTransform() const = 0;
  virtual void setPreferredTransform(CGAffineTransform transform) = 0;

  /// Points at `timeRange` of `track` from `startTime` on, or from the end of this track on when
  /// that is kCMTimeInvalid; copies no media. What lies at or after `startTime` moves on by the
  /// length of what is inserted; a segment there is split; a gap before it becomes an empty
  /// segment. The range is cut off where the source track ends; where that begins only within the
  /// range, an empty segment keeps its place. Sound of which nothing lies in the range is silence,
  /// and nothing is inserted. The source is kept open by the composition. False with `error` set
  /// (when not null), and nothing changed, when any other time is not numeric or is negative, no
  /// picture lies in the range, the kinds of media differ, or the track's asset is gone.
  [[nodiscard]] virtual bool insertTimeRange(CMTimeRange timeRange,
                                             std::shared_ptr<const AVAssetTrack> track,
                                             CMTime startTime, NSErrorPtr* error) = 0;

  /// Takes out what lies in `timeRange`; what follows moves up to its start. Nothing when the range
  /// is not numeric or lies outside the track. A double without segments has nothing to do.
  virtual void removeTimeRange(CMTimeRange timeRange) { static_cast<void>(timeRange); }

  /// From zero to the end of the last segment; invalid while there is none.
  [[nodiscard]] virtual CMTimeRange timeRange() const = 0;
  /// In order, without gaps or overlaps.
  [[nodiscard]] virtual const std::vector<AVCompositionTrackSegment>& segments() const = 0;
};

/// An asset put together from pieces of others' tracks. It is loaded as soon as it is made; what it
/// tells is what was inserted when it was asked; copies and items made of it do not change any
/// more. Abstract so that a test can script it.
/// Thread: one at a time while it is being put together, then any.
class ZAFFO_EXPORT AVMutableComposition : public AVAsset {
 public:
  [[nodiscard]] static std::shared_ptr<AVMutableComposition> create();

  /// `preferredTrackID` 0 means none preferred; one that is taken is not used either. The
  /// composition keeps the track.
  [[nodiscard]] virtual std::shared_ptr<AVMutableCompositionTrack> addMutableTrackWithMediaType(
      AVMediaType mediaType, int preferredTrackID) = 0;
  [[nodiscard]] virtual std::vector<std::shared_ptr<AVMutableCompositionTrack>> mutableTracks()
      const = 0;
};

}  // namespace zaffo
