// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <vector>

#include "platform/avfoundation/AVCompositionTrackSegment.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo::media {

/// The segments of one track in order of time, each beginning where the one before it ends. Shared
/// by all who look at the same state of a composition, and never changed.
using SegmentList = std::shared_ptr<const std::vector<AVCompositionTrackSegment>>;

/// The samples of a composition as it was at one moment. However many segments point into a file,
/// its header was parsed once, and a cursor holds at most one demuxer of it. Thread: any.
class CompositionSource : public SampleSource,
                          public std::enable_shared_from_this<CompositionSource> {
 public:
  struct Track {
    AVAssetTrack description;  ///< what the segments do not tell; its source is set here
    SegmentList segments;
  };

  /// `sources` keeps open what the segments point into.
  [[nodiscard]] static std::shared_ptr<CompositionSource> create(
      std::vector<Track> tracks, std::vector<std::shared_ptr<SampleSource>> sources);

  /// Those with a segment that is not empty.
  [[nodiscard]] const std::vector<std::shared_ptr<const AVAssetTrack>>& tracks() const override {
    return tracks_;
  }
  [[nodiscard]] CMTime duration() const override { return duration_; }
  /// Of the first segment that cannot be decoded.
  [[nodiscard]] NSErrorPtr whyNotDecoded(int trackID) const override;
  [[nodiscard]] bool soundTracksAreOne() const override { return true; }
  [[nodiscard]] CMTime emptyUntil(int trackID, CMTime time) const override;
  /// What all its sources have.
  [[nodiscard]] BufferedAhead bufferedAhead() const override;
  Result<std::unique_ptr<SampleCursor>> openCursor(int trackID) override;

 private:
  explicit CompositionSource(std::vector<std::shared_ptr<SampleSource>> sources)
      : sources_(std::move(sources)) {}
  void add(Track track);
  [[nodiscard]] SegmentList segmentsOf(int trackID) const;

  const std::vector<std::shared_ptr<SampleSource>> sources_;
  std::vector<std::shared_ptr<const AVAssetTrack>> tracks_;
  std::vector<SegmentList> segments_;  ///< of tracks_
  CMTime duration_ = kCMTimeZero;
};

}  // namespace zaffo::media
