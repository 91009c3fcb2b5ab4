// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/avfoundation/AVComposition.h"
#include "platform/media/source/CompositionSource.h"

namespace zaffo {

/// The platform's own AVMutableCompositionTrack. Its segments are shared with the copies of its
/// composition, and taken apart from them when the track changes.
class CompositionTrack final : public AVMutableCompositionTrack {
 public:
  CompositionTrack(AVMediaType mediaType, int trackID);

  [[nodiscard]] int trackID() const override { return trackID_; }
  [[nodiscard]] AVMediaType mediaType() const override { return mediaType_; }
  [[nodiscard]] CGAffineTransform preferredTransform() const override { return transform_; }
  void setPreferredTransform(CGAffineTransform transform) override;
  [[nodiscard]] bool insertTimeRange(CMTimeRange timeRange,
                                     std::shared_ptr<const AVAssetTrack> track, CMTime startTime,
                                     NSErrorPtr* error) override;
  void removeTimeRange(CMTimeRange timeRange) override;
  [[nodiscard]] CMTimeRange timeRange() const override;
  [[nodiscard]] const std::vector<AVCompositionTrackSegment>& segments() const override {
    return *segments_;
  }

  /// Counts the changes so far.
  [[nodiscard]] uint64_t version() const { return version_; }
  /// The track as it is now, described by what it was put together from.
  [[nodiscard]] media::CompositionSource::Track snapshot() const;
  /// What the segments point into, each once.
  [[nodiscard]] const std::vector<std::shared_ptr<media::SampleSource>>& sources() const {
    return sources_;
  }

 private:
  using Segments = std::vector<AVCompositionTrackSegment>;

  [[nodiscard]] CMTime end() const;
  [[nodiscard]] Segments& ownSegments();
  void keepOpen(std::shared_ptr<media::SampleSource> source);

  const AVMediaType mediaType_;
  const int trackID_;
  CGAffineTransform transform_ = CGAffineTransformIdentity;
  std::shared_ptr<Segments> segments_ = std::make_shared<Segments>();
  std::vector<std::shared_ptr<media::SampleSource>> sources_;
  uint64_t version_ = 0;
};

}  // namespace zaffo
