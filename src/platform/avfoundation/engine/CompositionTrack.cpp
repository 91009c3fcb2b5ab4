// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/CompositionTrack.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

#include "platform/foundation/MakeError.h"

namespace zaffo {
namespace {

using Segment = AVCompositionTrackSegment;
using Segments = std::vector<Segment>;
/// `duration` of a source from `start` on; its place in the track is still to be given.
Segment piece(std::shared_ptr<const AVAssetTrack> track, CMTime start, CMTime duration) {
  return {std::move(track), {start, duration}, {kCMTimeZero, duration}};
}

Segment emptyPiece(CMTime duration) {
  return piece(nullptr, kCMTimeZero, duration);
}

bool isTime(CMTime time) {
  return CMTIME_IS_NUMERIC(time) && time >= kCMTimeZero;
}

bool isAnyIn(CMTimeRange range, const AVAssetTrack& track) {
  return CMTimeRangeGetIntersection(range, track.timeRange).duration > kCMTimeZero;
}

/// Why the range cannot be inserted at a time; null when it can.
NSErrorPtr refusal(CMTimeRange range, const AVAssetTrack* track, CMTime startTime,
                   AVMediaType type) {
  if (!track || track->mediaType != type) {
    return makeError(AVErrorInvalidSourceMedia,
                     "A track takes tracks of its own kind of media only.");
  }
  if (!isTime(range.start)) {
    return makeError(
        AVErrorInvalidCompositionTrackSegmentSourceStartTime,
        "The range starts at no time of a track: " + CMTimeDescription(range.start) + ".");
  }
  const bool lasts = CMTIME_IS_NUMERIC(range.duration) && range.duration > kCMTimeZero;
  if (!lasts || (type == AVMediaTypeVideo && !isAnyIn(range, *track))) {
    return makeError(AVErrorInvalidCompositionTrackSegmentSourceDuration,
                     "Nothing of the range lies in the track.");
  }
  if (CMTIME_IS_VALID(startTime) && !isTime(startTime)) {
    return makeError(AVErrorUnknown,
                     "A range cannot be inserted at " + CMTimeDescription(startTime) + ".");
  }
  return nullptr;
}

/// What inserting the range adds: its media, and before that what keeps its place when the source
/// track begins later than the range.
Segments piecesOf(CMTimeRange range, const std::shared_ptr<const AVAssetTrack>& track) {
  Segments pieces;
  const CMTime begin = CMTimeMaximum(range.start, track->timeRange.start);
  if (range.start < begin) pieces.push_back(emptyPiece(begin - range.start));
  const CMTime trackEnd = CMTimeRangeGetEnd(track->timeRange);
  const bool whole = range.start == begin && CMTimeRangeGetEnd(range) <= trackEnd;
  const CMTime end = CMTimeMinimum(CMTimeRangeGetEnd(range), trackEnd);
  // The length as it was given, not a sum and a difference of it, wherever nothing is cut off.
  pieces.push_back(piece(track, begin, whole ? range.duration : end - begin));
  return pieces;
}

/// Cuts the segment that `time` lies within in two; the place of what begins at `time`.
Segments::iterator splitAt(Segments& segments, CMTime time) {
  auto at = std::ranges::find_if(
      segments, [time](const Segment& s) { return time < CMTimeRangeGetEnd(s.target); });
  if (at == segments.end() || time <= at->target.start) return at;
  const CMTime first = time - at->target.start;
  const CMTime rest = CMTimeRangeGetEnd(at->target) - time;
  Segment second =
      piece(at->sourceTrack, at->isEmpty() ? kCMTimeZero : at->source.start + first, rest);
  at->source.duration = at->target.duration = first;
  return segments.insert(std::next(at), std::move(second));
}

/// Puts each segment from `index` on behind the one before it.
void chainFrom(Segments& segments, std::size_t index) {
  for (; index < segments.size(); ++index) {
    segments[index].target.start =
        index == 0 ? kCMTimeZero : CMTimeRangeGetEnd(segments[index - 1].target);
  }
}

}  // namespace

CompositionTrack::CompositionTrack(AVMediaType mediaType, int trackID)
    : mediaType_(mediaType), trackID_(trackID) {}

void CompositionTrack::setPreferredTransform(CGAffineTransform transform) {
  transform_ = transform;
  ++version_;
}

bool CompositionTrack::insertTimeRange(CMTimeRange timeRange,
                                       std::shared_ptr<const AVAssetTrack> track, CMTime startTime,
                                       NSErrorPtr* error) {
  NSErrorPtr reason = refusal(timeRange, track.get(), startTime, mediaType_);
  auto source = reason ? nullptr : track->source.lock();
  if (!reason && !source) {
    reason = makeError(AVErrorInvalidSourceMedia, "The track's asset is gone.");
  }
  if (reason) {
    setError(error, std::move(reason));
    return false;
  }
  if (!isAnyIn(timeRange, *track)) return true;
  keepOpen(std::move(source));
  Segments& segments = ownSegments();
  const CMTime place = CMTIME_IS_VALID(startTime) ? startTime : end();
  Segments pieces = piecesOf(timeRange, track);
  if (place > end()) pieces.insert(pieces.begin(), emptyPiece(place - end()));
  const auto at = place >= end() ? segments.end() : splitAt(segments, place);
  const auto index = static_cast<std::size_t>(at - segments.begin());
  segments.insert(at, std::make_move_iterator(pieces.begin()),
                  std::make_move_iterator(pieces.end()));
  chainFrom(segments, index);
  ++version_;
  return true;
}

void CompositionTrack::removeTimeRange(CMTimeRange timeRange) {
  const CMTime from = timeRange.start;
  const CMTime until = CMTimeRangeGetEnd(timeRange);
  if (!isTime(from) || !isTime(until) || from >= until || from >= end()) return;
  Segments& segments = ownSegments();
  const auto cut = splitAt(segments, from);
  const auto first = cut - segments.begin();
  chainFrom(segments, static_cast<std::size_t>(first));
  const auto rest = splitAt(segments, until);
  segments.erase(segments.begin() + first, rest);
  chainFrom(segments, static_cast<std::size_t>(first));
  ++version_;
}

CMTime CompositionTrack::end() const {
  return segments_->empty() ? kCMTimeZero : CMTimeRangeGetEnd(segments_->back().target);
}

CMTimeRange CompositionTrack::timeRange() const {
  return segments_->empty() ? kCMTimeRangeInvalid : CMTimeRangeMake(kCMTimeZero, end());
}

CompositionTrack::Segments& CompositionTrack::ownSegments() {
  if (segments_.use_count() > 1) segments_ = std::make_shared<Segments>(*segments_);
  return *segments_;
}

void CompositionTrack::keepOpen(std::shared_ptr<media::SampleSource> source) {
  if (std::ranges::find(sources_, source) == sources_.end()) sources_.push_back(std::move(source));
}

media::CompositionSource::Track CompositionTrack::snapshot() const {
  AVAssetTrack description;
  const auto first =
      std::ranges::find_if(*segments_, [](const Segment& s) { return !s.isEmpty(); });
  if (first != segments_->end()) description = *first->sourceTrack;
  description.trackID = trackID_;
  description.mediaType = mediaType_;
  description.preferredTransform = transform_;
  description.timeRange = timeRange();
  description.source.reset();
  return {std::move(description), segments_};
}

}  // namespace zaffo
