#include "platform/media/CompositionSource.h"

#include <algorithm>
#include <utility>

#include "platform/media/CompositionCursor.h"
#include "platform/media/FFmpegError.h"

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

bool CompositionSource::isPlayable() const {
  return std::ranges::any_of(sources_, [](const auto& source) { return source->isPlayable(); });
}

std::unique_ptr<SampleCursor> CompositionSource::openCursor(int trackID, NSErrorPtr* error) {
  const auto track = std::ranges::find(tracks_, trackID, &AVAssetTrack::trackID);
  if (track == tracks_.end()) {
    setError(error, makeError(AVErrorUnknown, "The composition has nothing in such a track."));
    return nullptr;
  }
  return CompositionCursor::open(shared_from_this(), segments_[track - tracks_.begin()],
                                 (*track)->mediaType, error);
}

}  // namespace zaffo::media
