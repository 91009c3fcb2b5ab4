// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/media/source/CompositionSource.h"
#include "platform/media/source/SegmentWindow.h"

namespace zaffo::media {

/// Walks the samples of a composition's track, segment after segment, each from the sync sample on
/// that decoding its first frame needs. A cursor of the source is kept while segments point into
/// the same track, and goes to its place in the next segment at a seam.
///
/// What is given: what a segment shows, and what decoding that needs, marked as not shown. Times of
/// pictures are cut off at the ends of their segment: a frame that is on show when a segment
/// begins is presented at its beginning, and what is not shown at the end that it lies
/// beyond. Sound keeps its own times, so that it stands where it should; heardFrom and heardUntil
/// cut it. Decode times never go back. An empty segment is a gap in time.
class CompositionCursor : public SampleCursor {
 public:
  /// Fails when the first source cannot be read.
  static Result<std::unique_ptr<SampleCursor>> open(std::shared_ptr<CompositionSource> source,
                                                    SegmentList segments, AVMediaType type);

  [[nodiscard]] Outcome next(Sample& sample) override;
  /// In a gap the frame before it stays on show, and what is heard next is after it.
  [[nodiscard]] bool seek(CMTime time) override;
  [[nodiscard]] NSErrorPtr error() const override { return error_; }
  [[nodiscard]] const AVCodecParameters& codecParameters() const override {
    return inner_->codecParameters();
  }
  void setReadyHandler(std::function<void()> handler) override;

 private:
  CompositionCursor(std::shared_ptr<CompositionSource> source, SegmentList segments,
                    AVMediaType type);
  [[nodiscard]] const AVCompositionTrackSegment& segment() const { return (*segments_)[index_]; }
  [[nodiscard]] std::size_t mediaFrom(std::size_t index) const;
  [[nodiscard]] std::size_t segmentFor(CMTime time) const;
  [[nodiscard]] bool openInner();
  [[nodiscard]] bool enter(std::size_t index, CMTime sourceTime);
  [[nodiscard]] Outcome readOne();
  void place(Sample& sample);
  void cutPicture(Sample& sample) const;
  void cutSound(Sample& sample) const;
  [[nodiscard]] CMTime cutTime(CMTime sourceTime) const;

  const std::shared_ptr<CompositionSource> source_;
  const SegmentList segments_;
  const AVMediaType type_;
  std::function<void()> readyHandler_;

  std::size_t index_ = 0;  ///< of the segment that is read
  bool entered_ = false;   ///< the source stands in it
  std::shared_ptr<SampleSource> innerSource_;
  int innerTrackID_ = 0;
  std::unique_ptr<SampleCursor> inner_;
  SegmentWindow window_;
  CMTime offset_;        ///< from the source's time line to the composition's
  CMTime lastDecode_;    ///< of the sample last given
  bool isFirst_ = true;  ///< none of this segment was given yet
  PacketPtr spare_;
  Outcome outcome_ = Outcome::Ready;
  NSErrorPtr error_;
};

}  // namespace zaffo::media
