// SPDX-License-Identifier: Apache-2.0
#include "platform/streaming/StreamCursor.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/foundation/MakeError.h"

namespace zaffo::streaming {
namespace {

using media::Outcome;
using media::Sample;

/// Sound that decoding needs before a time so that the sound at that time is right.
constexpr CMTime kSoundBefore = CMTimeMake(1, 10);

}  // namespace

StreamCursor::StreamCursor(std::shared_ptr<StreamFeed> feed, std::shared_ptr<StreamClock> clock,
                           AVMediaType type, media::CodecConfig config)
    : feed_(std::move(feed)),
      clock_(std::move(clock)),
      type_(type),
      config_(std::move(config)),
      number_(feed_->firstNumber()) {}

StreamCursor::~StreamCursor() {
  leave();
  if (waiter_) waiter_->cancel();
}

void StreamCursor::setReadyHandler(std::function<void()> handler) {
  ready_ = std::move(handler);
  if (task_) task_->setReadyHandler(ready_);
}

/// Ends what is read of the present segment.
void StreamCursor::leave() {
  if (task_) task_->abandon();
  reader_.reset();
  task_.reset();
  segment_.reset();
  hasBegun_ = false;
}

bool StreamCursor::seek(CMTime time) {
  hasEnded_ = false;
  error_ = nullptr;
  const bool isTime = CMTIME_IS_NUMERIC(time) || CMTIME_IS_POSITIVE_INFINITY(time);
  target_ = isTime ? time : kCMTimeZero;
  startAt(feed_->numberFor(*target_));
  return true;
}

/// As if nothing had been read before.
void StreamCursor::startAt(int64_t number) {
  leave();
  held_.clear();
  lastPlace_.reset();
  startsAnew_ = false;
  shownUntil_ = lastDecode_ = kCMTimeInvalid;
  lastEnd_ = kCMTimeNegativeInfinity;
  number_ = lowest_ = number;
}

Outcome StreamCursor::next(Sample& sample) {
  for (;;) {
    if (!target_ && !held_.empty()) {
      sample = std::move(held_.front());
      held_.pop_front();
      return Outcome::Ready;
    }
    if (error_) return Outcome::Error;
    if (hasEnded_) return Outcome::End;
    if (!segment_) {
      if (enter() == Outcome::Again) return Outcome::Again;
      continue;
    }
    prefetch();
    if (!task_->run([this] { readOne(); })) return Outcome::Again;
    take();
  }
}

/// Has the segment to be read at hand; behind the last one there is the end.
Outcome StreamCursor::enter() {
  while (!ahead_.empty() && ahead_.front()->number != number_) ahead_.pop_front();
  if (!ahead_.empty()) {
    hold(std::move(ahead_.front()));
    ahead_.pop_front();
    return Outcome::Ready;
  }
  std::shared_ptr<const StreamSegment> segment;
  const Outcome outcome = feed_->segment(number_, secondsRead(), segment);
  switch (outcome) {
    case Outcome::Ready:
      hold(std::move(segment));
      break;
    case Outcome::End:
      hasEnded_ = true;
      break;
    case Outcome::Error:
      error_ = feed_->error();
      break;
    case Outcome::Working:
      skipTo(feed_->firstNumber());
      break;
    case Outcome::Again:
      return awaitSegment();
  }
  return outcome;
}

/// What a live stream's list has no longer is passed over.
void StreamCursor::skipTo(int64_t number) {
  leave();
  number_ = number;
  if (lastPlace_) lastPlace_->run = -1;
}

/// Asks once more behind the back of what may have come since.
Outcome StreamCursor::awaitSegment() {
  if (waiter_) waiter_->cancel();
  waiter_ = std::make_shared<media::WantHandler>([ready = ready_] {
    if (ready) ready();
  });
  feed_->awaitMore(waiter_);
  std::shared_ptr<const StreamSegment> segment;
  const Outcome outcome = feed_->segment(number_, secondsRead(), segment);
  return outcome == Outcome::Again ? Outcome::Again : Outcome::Working;
}

/// Infinity while there is no place.
double StreamCursor::secondsRead() const {
  return CMTIME_IS_NUMERIC(lastDecode_) ? CMTimeGetSeconds(lastDecode_)
                                        : std::numeric_limits<double>::infinity();
}

void StreamCursor::hold(std::shared_ptr<const StreamSegment> segment) {
  segment_ = std::move(segment);
  task_ = std::make_unique<media::ReadTask>(segment_->bytes);
  if (ready_) task_->setReadyHandler(ready_);
}

/// The task's work.
void StreamCursor::readOne() {
  if (!reader_) {
    auto opened = media::SegmentReader::open(*task_, type_);
    if (!opened) {
      error_ = opened.error();
      outcome_ = Outcome::Error;
      return;
    }
    reader_ = *std::move(opened);
  }
  outcome_ = reader_->next(read_);
}

/// Takes what the work has read.
void StreamCursor::take() {
  if (reader_ && !hasBegun_) begin();
  switch (outcome_) {
    case Outcome::Ready:
      place(read_);
      if (target_) return takeToLand(std::move(read_));
      held_.push_back(std::move(read_));
      return;
    case Outcome::End:
      return endSegment();
    case Outcome::Error:
      if (reader_) error_ = reader_->error();
      target_.reset();
      if (number_ < feed_->firstNumber()) {
        error_ = nullptr;
        skipTo(feed_->firstNumber());
      }
      return;
    case Outcome::Working:
    case Outcome::Again:
      return;
  }
}

/// The segment's times and its decoder's parameters are known now.
void StreamCursor::begin() {
  hasBegun_ = true;
  offset_ = clock_->offsetFor(segment_->run, reader_->start(), segment_->start);
  if (!reader_->hasTrack()) return;
  Place place{segment_->rendition, segment_->run, segment_->header};
  const bool isSame = lastPlace_ && lastPlace_->rendition == place.rendition &&
                      lastPlace_->run == place.run && lastPlace_->header == place.header;
  if (isSame) return;
  media::CodecConfig config(reader_->codecParameters());
  if (!config.parameters()) {
    error_ = makeError(AVErrorUnknown, "Out of memory.");
    return;
  }
  // Sound that is coded alike goes on from one rendition to another.
  const bool goesOn = type_ == AVMediaType::Audio && lastPlace_ && lastPlace_->run == place.run &&
                      config == config_;
  startsAnew_ = lastPlace_ && !goesOn;
  if (startsAnew_) shownUntil_ = lastEnd_;
  config_ = std::move(config);
  lastPlace_ = std::move(place);
}

/// What lies before the place that is looked for is passed over.
void StreamCursor::takeToLand(Sample sample) {
  if (type_ == AVMediaType::Audio) {
    const CMTime end = sample.presentation + sample.duration;
    if (CMTIME_IS_NUMERIC(end) && end + kSoundBefore <= *target_) return;
    held_.push_back(std::move(sample));
    return land();
  }
  if (sample.sync && sample.presentation <= *target_) held_.clear();
  const bool isBeyond = CMTIME_IS_NUMERIC(sample.decode) && sample.decode > *target_;
  held_.push_back(std::move(sample));
  if (isBeyond) land();
}

/// The place is in this segment, or in one before: lists round the times of their segments, and not
/// every segment begins with a sync sample.
void StreamCursor::land() {
  const Sample& first = held_.front();
  const CMTime latest = type_ == AVMediaType::Audio ? *target_ + kSoundBefore : *target_;
  const bool isLate = first.presentation > latest || !first.sync;
  if (!isLate || number_ != lowest_ || number_ <= feed_->firstNumber()) return target_.reset();
  startAt(number_ - 1);
}

void StreamCursor::endSegment() {
  const int64_t ended = number_;
  if (target_ && !held_.empty()) land();
  if (number_ != ended) return;
  leave();
  ++number_;
}

/// On the stream's time line, where what was put in front of its beginning is not heard.
void StreamCursor::place(Sample& sample) {
  sample.presentation = sample.presentation + offset_;
  if (CMTIME_IS_NUMERIC(sample.decode)) {
    sample.decode = sample.decode + offset_;
    if (CMTIME_IS_VALID(lastDecode_)) sample.decode = CMTimeMaximum(lastDecode_, sample.decode);
    lastDecode_ = sample.decode;
    feed_->noteReading(CMTimeGetSeconds(lastDecode_));
  }
  sample.heardFrom = kCMTimeZero;
  sample.isDiscontinuity = std::exchange(startsAnew_, false);
  const CMTime end = sample.presentation + sample.duration;
  if (!CMTIME_IS_NUMERIC(end)) return;
  const CMTime middle = sample.presentation + CMTimeMultiplyByFloat64(sample.duration, 0.5);
  if (type_ == AVMediaType::Video && CMTIME_IS_NUMERIC(shownUntil_) && middle < shownUntil_) {
    sample.decodeOnly = true;
  }
  lastEnd_ = CMTimeMaximum(lastEnd_, end);
}

/// Holds further segments once those before them are here.
void StreamCursor::prefetch() {
  if (ahead_.size() >= kMostSegmentsAhead || !segment_->bytes->ahead().isRest) return;
  int64_t bytes = segment_->bytes->bodySize().value_or(0);
  for (const auto& segment : ahead_) {
    if (!segment->bytes->ahead().isRest) return;
    bytes += segment->bytes->bodySize().value_or(0);
  }
  const auto count = static_cast<int64_t>(ahead_.size()) + 1;
  if (bytes + bytes / count > kMostBytesAhead) return;
  std::shared_ptr<const StreamSegment> next;
  if (feed_->segment(number_ + count, secondsRead(), next) == Outcome::Ready) {
    ahead_.push_back(std::move(next));
  }
}

}  // namespace zaffo::streaming
