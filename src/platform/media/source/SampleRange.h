// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <memory>

#include "platform/coremedia/CMSampleBuffer.h"
#include "platform/coremedia/CMTimeRange.h"
#include "platform/media/ReorderHorizon.h"
#include "platform/media/source/SampleSource.h"
#include "platform/uikit/Geometry.h"

namespace zaffo::media {

/// The samples of a track that showing a time range needs, in decode order: from the sync sample
/// that decoding its start needs to the last one that is decoded before its end. Marked as not
/// shown is what the range does not show: what is presented at its end or later, and what a later
/// sample has replaced by its start. To know that of a sample before the start, a few samples
/// after it are read ahead; nothing is when the range starts with a sync sample.
/// Thread: one at a time.
class SampleRange {
 public:
  /// Opens a cursor on the track and goes to the start. A start that is no number means the
  /// beginning, a duration that is none the end. Fails when that cannot be read.
  static Result<std::unique_ptr<SampleRange>> open(SampleSource& source, const AVAssetTrack& track,
                                                   CMTimeRange range);

  /// Reads the next sample. After End or Error it stays so.
  [[nodiscard]] Outcome next(Sample& sample);
  /// The format of the sample that was given last: the same object until the format changes.
  [[nodiscard]] const std::shared_ptr<const CMFormatDescription>& format() const {
    return givenFormat_;
  }
  /// Why reading failed; null otherwise.
  [[nodiscard]] NSErrorPtr error() const { return error_; }
  /// As SampleCursor::setReadyHandler.
  void setReadyHandler(std::function<void()> handler);

 private:
  struct Entry {
    Sample sample;
    std::shared_ptr<const CMFormatDescription> format;
  };

  SampleRange(std::unique_ptr<SampleCursor> cursor, CMTimeRange range,
              CGAffineTransform preferredTransform)
      : cursor_(std::move(cursor)),
        preferredTransform_(preferredTransform),
        start_(range.start),
        end_(CMTimeRangeGetEnd(range)) {}
  [[nodiscard]] Outcome readOne();
  [[nodiscard]] bool isSettled(const Sample& sample) const;
  [[nodiscard]] bool adoptFormat(bool isDiscontinuity);
  void give(Sample& sample);

  const std::unique_ptr<SampleCursor> cursor_;  // null when the range holds nothing
  const CGAffineTransform preferredTransform_;  // of the track
  const CMTime start_, end_;
  std::shared_ptr<const CMFormatDescription> format_, givenFormat_;
  std::deque<Entry> ahead_;                   // read and not given yet
  CMTime atStart_ = kCMTimeNegativeInfinity;  // the last presentation up to the start, so far
  bool passedStart_ = false;                  // no further sample is presented up to the start
  ReorderHorizon horizon_;                    // of what was read
  Outcome outcome_ = Outcome::Ready;
  NSErrorPtr error_;
};

}  // namespace zaffo::media
