// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/SampleRange.h"

#include <utility>

#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/media/FFmpegError.h"
#include "platform/media/SampleBuffers.h"

namespace zaffo::media {
namespace {

CMTimeRange meantBy(CMTimeRange range) {
  if (!CMTIME_IS_NUMERIC(range.start) && !CMTIME_IS_POSITIVE_INFINITY(range.start)) {
    range.start = kCMTimeZero;
  }
  if (!CMTIME_IS_NUMERIC(range.duration)) range.duration = kCMTimePositiveInfinity;
  return range;
}

bool holdsNothing(CMTimeRange range, const AVAssetTrack& track) {
  if (CMTIME_IS_POSITIVE_INFINITY(range.start) || range.duration <= kCMTimeZero) return true;
  const bool knowsItsEnd = track.timeRange.duration > kCMTimeZero;
  return knowsItsEnd && range.start >= CMTimeRangeGetEnd(track.timeRange);
}

}  // namespace

Result<std::unique_ptr<SampleRange>> SampleRange::open(SampleSource& source,
                                                       const AVAssetTrack& track,
                                                       CMTimeRange range) {
  range = meantBy(range);
  if (holdsNothing(range, track)) {
    return std::unique_ptr<SampleRange>(new SampleRange(nullptr, range, track.preferredTransform));
  }
  auto cursor = source.openCursor(track.trackID);
  if (!cursor) return cursor.error();
  if (range.start > kCMTimeZero && !(*cursor)->seek(range.start)) return (*cursor)->error();
  return std::unique_ptr<SampleRange>(
      new SampleRange(*std::move(cursor), range, track.preferredTransform));
}

void SampleRange::setReadyHandler(std::function<void()> handler) {
  if (cursor_) cursor_->setReadyHandler(std::move(handler));
}

Outcome SampleRange::next(Sample& sample) {
  while (ahead_.empty() || !isSettled(ahead_.front().sample)) {
    if (outcome_ == Outcome::Ready && readOne() == Outcome::Again) {
      return Outcome::Again;
    }
    if (outcome_ == Outcome::Ready) continue;
    if (ahead_.empty()) return outcome_;
    passedStart_ = true;
  }
  give(sample);
  return Outcome::Ready;
}

/// Reads one sample into ahead_. Again leaves everything as it is.
Outcome SampleRange::readOne() {
  Sample sample;
  const Outcome read = cursor_ ? cursor_->next(sample) : Outcome::End;
  if (read == Outcome::Again) return read;
  outcome_ = read;
  if (read == Outcome::Error) error_ = cursor_->error();
  if (read != Outcome::Ready) return read;
  horizon_.pass(sample);
  if (horizon_.time() >= end_) return outcome_ = Outcome::End;
  if (!adoptFormat(sample.isDiscontinuity)) return outcome_ = Outcome::Error;
  if (sample.presentation >= end_) sample.decodeOnly = true;
  if (!sample.decodeOnly && sample.presentation <= start_) {
    atStart_ = CMTimeMaximum(atStart_, sample.presentation);
  }
  passedStart_ = horizon_.time() > start_;
  ahead_.push_back({std::move(sample), format_});
  return outcome_;
}

/// Whether it is known if the range shows the sample.
bool SampleRange::isSettled(const Sample& sample) const {
  return passedStart_ || sample.decodeOnly || sample.presentation >= start_ ||
         sample.presentation < atStart_;
}

void SampleRange::give(Sample& sample) {
  Entry& entry = ahead_.front();
  sample = std::move(entry.sample);
  givenFormat_ = std::move(entry.format);
  ahead_.pop_front();
  if (sample.presentation < atStart_) sample.decodeOnly = true;
}

bool SampleRange::adoptFormat(bool isDiscontinuity) {
  if (format_ && !isDiscontinuity) return true;
  const AVCodecParameters& parameters = cursor_->codecParameters();
  if (format_ && *codecConfigOf(*format_) == parameters) return true;
  format_ = makeFormatDescription(parameters, preferredTransform_);
  if (!format_) error_ = makeFFmpegError(AVErrorUnknown, "Out of memory.", AVERROR(ENOMEM));
  return format_ != nullptr;
}

}  // namespace zaffo::media
