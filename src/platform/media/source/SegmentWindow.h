// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>

#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/coremedia/CMTimeRange.h"
#include "platform/media/ReorderHorizon.h"

namespace zaffo::media {

/// Whether `a` lies before `b` by more than rounding can account for. Times of a composition are
/// sums at different timescales, rounded to half a nanosecond where none is common to both: a
/// frame that begins within a nanosecond of a segment's end begins at its end.
[[nodiscard]] bool isClearlyBefore(CMTime a, CMTime b);

/// Chooses, of a source's samples as they come in decode order, those that a range of its time line
/// takes: what is on show or heard in it, what decoding of that needs, and nothing else. A few
/// samples wait inside until those that follow tell what they are: times go back and forth in
/// decode order. Thread: one at a time.
class SegmentWindow {
 public:
  /// One that is complete and has nothing to give.
  SegmentWindow() = default;
  SegmentWindow(AVMediaType type, CMTimeRange range);

  /// The next sample of the source, from a sync sample on that decoding of the range's start needs.
  void take(Sample sample);
  /// The source has no more samples.
  void finish();
  /// No sample that would follow matters; what waits may be given still.
  [[nodiscard]] bool isComplete() const { return complete_; }
  /// The next sample that is decided, marked `decodeOnly` when it is needed for others alone. False
  /// when the next one is to be taken first, or there is none any more.
  [[nodiscard]] bool give(Sample& sample);

 private:
  enum class Place {
    Hidden,  ///< nothing of it is on show anywhere
    Before,  ///< begins at or before the start: the last one of them is on show there
    Inside,
    Beyond,  ///< begins at or after the end
  };
  /// Whether other samples refer to one is the decoder's to see: what containers tell of that is
  /// wrong in too many files.
  enum class Verdict { Show, Hide, Drop, Wait };
  struct Held {
    Sample sample;
    Place place = Place::Inside;
  };

  void takePicture(Sample sample);
  void takeSound(Sample sample);
  void hold(Sample sample, Place place);
  [[nodiscard]] Place placeOf(const Sample& sample) const;
  [[nodiscard]] Verdict judge(const Held& held) const;

  AVMediaType type_ = AVMediaTypeVideo;
  CMTime start_, end_;
  std::deque<Held> held_;     ///< in decode order
  std::size_t wanted_ = 0;    ///< of held_, those that do not begin beyond the end
  CMTime syncPresentation_;   ///< of the first sample
  CMTime lastBefore_;         ///< presentation of the latest one known that is Before
  bool startIsKnown_ = true;  ///< no later one can be Before
  ReorderHorizon horizon_;
  bool complete_ = true;
};

}  // namespace zaffo::media
