// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/CompositionSource.h"

#include <algorithm>
#include <utility>

#include "platform/foundation/MakeError.h"
#include "platform/media/source/CompositionCursor.h"

namespace zaffo::media {

std::shared_ptr<CompositionSource> CompositionSource::create(
    std::vector<Track> tracks, std::vector<std::shared_ptr<SampleSource>> sources) {
  std::shared_ptr<CompositionSource> source(new CompositionSource(std::move(sources)));
  for (Track& track : tracks) source->add(std::move(track));
  return source;
}

void CompositionSource::add(Track track) {
  const auto& segments = *track.segments;
  if (segments.empty()) return;
  duration_ = CMTimeMaximum(duration_, CMTimeRangeGetEnd(segments.back().target));
  if (std::ranges::all_of(segments, &AVCompositionTrackSegment::isEmpty)) return;
  auto description = std::make_shared<AVAssetTrack>(std::move(track.description));
  description->source = weak_from_this();
  tracks_.push_back(std::move(description));
  segments_.push_back(std::move(track.segments));
}

NSErrorPtr CompositionSource::whyNotDecoded(int trackID) const {
  const SegmentList segments = segmentsOf(trackID);
  if (!segments) return nullptr;
  for (const AVCompositionTrackSegment& segment : *segments) {
    const auto source = segment.isEmpty() ? nullptr : segment.sourceTrack->source.lock();
    if (!source) continue;
    if (auto reason = source->whyNotDecoded(segment.sourceTrack->trackID)) return reason;
  }
  return nullptr;
}

CMTime CompositionSource::emptyUntil(int trackID, CMTime time) const {
  const SegmentList segments = segmentsOf(trackID);
  if (!segments) return kCMTimePositiveInfinity;
  const auto next = std::ranges::find_if(*segments, [time](const auto& segment) {
    return !segment.isEmpty() && CMTimeRangeGetEnd(segment.target) > time;
  });
  return next == segments->end() ? kCMTimePositiveInfinity
                                 : CMTimeMaximum(next->target.start, time);
}

BufferedAhead CompositionSource::bufferedAhead() const {
  BufferedAhead ahead;
  for (const auto& source : sources_) ahead = ahead.with(source->bufferedAhead());
  // Behind the last segment of a clip comes its beginning again.
  ahead.isRest = ahead.isAll;
  return ahead;
}

Result<std::unique_ptr<SampleCursor>> CompositionSource::openCursor(int trackID) {
  SegmentList segments = segmentsOf(trackID);
  if (!segments) return makeError(AVErrorUnknown, "The composition has nothing in such a track.");
  const auto track = std::ranges::find(tracks_, trackID, &AVAssetTrack::trackID);
  return CompositionCursor::open(shared_from_this(), std::move(segments), (*track)->mediaType);
}

/// Null when the composition has nothing in such a track.
SegmentList CompositionSource::segmentsOf(int trackID) const {
  const auto track = std::ranges::find(tracks_, trackID, &AVAssetTrack::trackID);
  return track == tracks_.end() ? nullptr : segments_[track - tracks_.begin()];
}

}  // namespace zaffo::media
