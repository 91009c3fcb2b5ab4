// SPDX-License-Identifier: Apache-2.0
#include "platform/streaming/StreamSource.h"

#include <algorithm>
#include <utility>

#include "platform/foundation/MakeError.h"
#include "platform/media/codec/CodecContext.h"
#include "platform/streaming/StreamCursor.h"

namespace zaffo::streaming {

std::shared_ptr<StreamSource> StreamSource::make(std::vector<Part> parts,
                                                 std::shared_ptr<StreamClock> clock) {
  std::shared_ptr<StreamSource> source(new StreamSource(std::move(clock)));
  for (Part& part : parts) source->add(std::move(part));
  return source;
}

void StreamSource::add(Part part) {
  const auto track = part.track.track;
  track->trackID = static_cast<int>(tracks_.size()) + 1;
  track->timeRange = CMTimeRangeMake(kCMTimeZero, part.feed->duration());
  track->source = weak_from_this();
  read_.emplace(track->trackID,
                Track{std::move(part.feed), media::CodecConfig(*part.track.parameters)});
  tracks_.push_back(track);
}

CMTime StreamSource::duration() const {
  CMTime duration = kCMTimeZero;
  for (const auto& [id, track] : read_) {
    const CMTime own = track.feed->duration();
    if (!CMTIME_IS_NUMERIC(own)) return own;
    duration = CMTimeMaximum(duration, own);
  }
  return duration;
}

NSErrorPtr StreamSource::whyNotDecoded(int trackID) const {
  const auto found = read_.find(trackID);
  if (found == read_.end() || !found->second.config.parameters()) return nullptr;
  return media::whyNotDecoded(*found->second.config.parameters());
}

media::BufferedAhead StreamSource::bufferedAhead() const {
  media::BufferedAhead ahead;
  for (const auto& [id, track] : read_) ahead = ahead.with(track.feed->bufferedAhead());
  return ahead;
}

Result<std::unique_ptr<media::SampleCursor>> StreamSource::openCursor(int trackID) {
  const auto track = std::ranges::find(tracks_, trackID, &AVAssetTrack::trackID);
  if (track == tracks_.end()) return makeError(AVErrorUnknown, "The asset has no such track.");
  const Track& read = read_.at(trackID);
  if (!read.config.parameters()) return makeError(AVErrorUnknown, "Out of memory.");
  return std::make_unique<StreamCursor>(read.feed, clock_, (*track)->mediaType,
                                        media::CodecConfig(*read.config.parameters()));
}

}  // namespace zaffo::streaming
