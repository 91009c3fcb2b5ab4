// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/CompositionCursor.h"

#include <algorithm>
#include <utility>

#include "platform/foundation/MakeError.h"

namespace zaffo::media {
namespace {

constexpr CMTime kJustBefore = CMTimeMake(1, 1'000'000);

// One that is shorter than times are told apart holds no sample.
bool hasMedia(const AVCompositionTrackSegment& segment) {
  return !segment.isEmpty() &&
         isClearlyBefore(segment.source.start, CMTimeRangeGetEnd(segment.source));
}

}  // namespace

Result<std::unique_ptr<SampleCursor>> CompositionCursor::open(
    std::shared_ptr<CompositionSource> source, SegmentList segments, AVMediaType type) {
  std::unique_ptr<CompositionCursor> cursor(
      new CompositionCursor(std::move(source), std::move(segments), type));
  cursor->index_ = cursor->mediaFrom(0);
  if (cursor->index_ == cursor->segments_->size()) {
    return makeError(AVErrorUnknown, "The composition's track is empty.");
  }
  if (cursor->openInner()) return cursor;
  return cursor->error_;
}

CompositionCursor::CompositionCursor(std::shared_ptr<CompositionSource> source,
                                     SegmentList segments, AVMediaType type)
    : source_(std::move(source)), segments_(std::move(segments)), type_(type) {}

void CompositionCursor::setReadyHandler(std::function<void()> handler) {
  readyHandler_ = std::move(handler);
  inner_->setReadyHandler(readyHandler_);
}

Outcome CompositionCursor::next(Sample& sample) {
  if (!entered_ && outcome_ == Outcome::Ready) {
    (void)enter(index_, segment().source.start);
  }
  PacketPtr used = std::move(sample.packet);
  while (outcome_ == Outcome::Ready) {
    if (window_.give(sample)) {
      place(sample);
      if (used) spare_ = std::move(used);
      return Outcome::Ready;
    }
    if (!window_.isComplete()) {
      if (readOne() == Outcome::Again) return Outcome::Again;
    } else if (error_) {
      outcome_ = Outcome::Error;
    } else if (const std::size_t index = mediaFrom(index_ + 1); index < segments_->size()) {
      (void)enter(index, (*segments_)[index].source.start);
    } else {
      outcome_ = Outcome::End;
    }
  }
  return outcome_;
}

/// Lets the window have the source's next sample. What was read before an error is given first.
Outcome CompositionCursor::readOne() {
  Sample sample;
  sample.packet = std::move(spare_);
  const Outcome outcome = inner_->next(sample);
  switch (outcome) {
    case Outcome::Ready:
      window_.take(std::move(sample));
      break;
    case Outcome::Working:
    case Outcome::Again:
      break;
    case Outcome::Error:
      error_ = inner_->error();
      [[fallthrough]];
    case Outcome::End:
      window_.finish();
      break;
  }
  return outcome;
}

bool CompositionCursor::seek(CMTime time) {
  error_ = nullptr;
  outcome_ = Outcome::Ready;
  lastDecode_ = kCMTimeInvalid;
  if (!CMTIME_IS_NUMERIC(time) && !CMTIME_IS_POSITIVE_INFINITY(time)) time = kCMTimeZero;
  const std::size_t index = segmentFor(time);
  const AVCompositionTrackSegment& found = (*segments_)[index];
  CMTime sourceTime = found.source.start;
  if (time >= CMTimeRangeGetEnd(found.target)) {
    sourceTime = CMTimeMaximum(CMTimeRangeGetEnd(found.source) - kJustBefore, sourceTime);
  } else if (time > found.target.start) {
    sourceTime = sourceTime + (time - found.target.start);
  }
  return enter(index, sourceTime);
}

/// The first segment with media from `index` on; their number when there is none.
std::size_t CompositionCursor::mediaFrom(std::size_t index) const {
  while (index < segments_->size() && !hasMedia((*segments_)[index])) ++index;
  return index;
}

/// The segment whose media is on show or heard at `time`, or as near to that as there is.
std::size_t CompositionCursor::segmentFor(CMTime time) const {
  const auto after = std::ranges::upper_bound(
      *segments_, time, [](CMTime a, CMTime b) { return a < b; },
      [](const AVCompositionTrackSegment& s) { return s.target.start; });
  const auto at =
      static_cast<std::size_t>(std::max<std::ptrdiff_t>(0, after - segments_->begin() - 1));
  const std::size_t next = mediaFrom(at);
  if (next == at || (type_ == AVMediaTypeAudio && next < segments_->size())) return next;
  for (std::size_t previous = at; previous-- > 0;) {
    if (hasMedia((*segments_)[previous])) return previous;
  }
  return next;
}

/// Has the source's cursor for the present segment at hand; its place is none in particular. False
/// with error_ set when it cannot be opened.
bool CompositionCursor::openInner() {
  const std::shared_ptr<SampleSource> wanted = segment().sourceTrack->source.lock();
  const int trackID = segment().sourceTrack->trackID;
  if (inner_ && wanted == innerSource_ && trackID == innerTrackID_) return true;
  if (!wanted) {
    error_ = makeError(AVErrorInvalidSourceMedia, "A composition's source is gone.");
    return false;
  }
  auto opened = wanted->openCursor(trackID);
  if (!opened) {
    error_ = opened.error();
    return false;
  }
  inner_ = *std::move(opened);
  innerSource_ = wanted;
  innerTrackID_ = trackID;
  if (readyHandler_) inner_->setReadyHandler(readyHandler_);
  return true;
}

bool CompositionCursor::enter(std::size_t index, CMTime sourceTime) {
  index_ = index;
  entered_ = true;
  isFirst_ = true;
  if (openInner()) {
    if (inner_->seek(sourceTime)) {
      offset_ = segment().target.start - segment().source.start;
      window_ = SegmentWindow(type_, segment().source);
      return true;
    }
    error_ = inner_->error();
  }
  window_ = SegmentWindow();
  outcome_ = Outcome::Error;
  return false;
}

void CompositionCursor::place(Sample& sample) {
  if (type_ == AVMediaTypeVideo) {
    cutPicture(sample);
  } else {
    cutSound(sample);
  }
  if (CMTIME_IS_NUMERIC(sample.decode)) {
    sample.decode = sample.decode + offset_;
    if (CMTIME_IS_VALID(lastDecode_)) sample.decode = CMTimeMaximum(lastDecode_, sample.decode);
    lastDecode_ = sample.decode;
  }
  sample.isDiscontinuity = sample.isDiscontinuity || isFirst_;
  isFirst_ = false;
}

void CompositionCursor::cutPicture(Sample& sample) const {
  if (!CMTIME_IS_NUMERIC(sample.presentation)) return;
  const CMTime from = sample.presentation;
  sample.presentation = cutTime(from);
  if (!CMTIME_IS_NUMERIC(sample.duration)) return;
  const CMTime until = cutTime(from + sample.duration);
  sample.duration = CMTimeMaximum(until - sample.presentation, kCMTimeZero);
}

/// A time of the source on the composition's time line, within the segment.
CMTime CompositionCursor::cutTime(CMTime sourceTime) const {
  const AVCompositionTrackSegment& s = segment();
  if (!isClearlyBefore(s.source.start, sourceTime)) return s.target.start;
  if (!isClearlyBefore(sourceTime, CMTimeRangeGetEnd(s.source))) return CMTimeRangeGetEnd(s.target);
  return sourceTime + offset_;
}

void CompositionCursor::cutSound(Sample& sample) const {
  const CMTimeRange& target = segment().target;
  if (CMTIME_IS_NUMERIC(sample.presentation)) {
    sample.presentation = sample.presentation + offset_;
  }
  const CMTime end = CMTimeRangeGetEnd(target);
  sample.heardFrom = CMTIME_IS_NUMERIC(sample.heardFrom)
                         ? CMTimeMaximum(sample.heardFrom + offset_, target.start)
                         : target.start;
  sample.heardUntil =
      CMTIME_IS_NUMERIC(sample.heardUntil) ? CMTimeMinimum(sample.heardUntil + offset_, end) : end;
}

}  // namespace zaffo::media
