// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/SegmentWindow.h"

#include <utility>

namespace zaffo::media {
namespace {

constexpr CMTime kLeastDifference = CMTimeMake(1, 1'000'000'000);

}  // namespace

bool isClearlyBefore(CMTime a, CMTime b) {
  return a < b && CMTimeSubtract(b, a) >= kLeastDifference;
}

SegmentWindow::SegmentWindow(AVMediaType type, CMTimeRange range)
    : type_(type),
      start_(range.start),
      end_(CMTimeRangeGetEnd(range)),
      startIsKnown_(false),
      complete_(false) {}

void SegmentWindow::take(Sample sample) {
  if (type_ == AVMediaTypeAudio) {
    takeSound(std::move(sample));
  } else {
    takePicture(std::move(sample));
  }
}

// Sound comes in the order in which it is heard.
void SegmentWindow::takeSound(Sample sample) {
  const bool timed = CMTIME_IS_NUMERIC(sample.presentation);
  if (timed && !isClearlyBefore(sample.presentation, end_)) return finish();
  const bool lasts = CMTIME_IS_NUMERIC(sample.duration) && sample.duration > kCMTimeZero;
  const bool over =
      timed && lasts && !isClearlyBefore(start_, CMTimeAdd(sample.presentation, sample.duration));
  hold(std::move(sample), over ? Place::Hidden : Place::Inside);
}

void SegmentWindow::takePicture(Sample sample) {
  horizon_.pass(sample);
  if (CMTIME_IS_INVALID(syncPresentation_)) syncPresentation_ = sample.presentation;
  // What is shown before the sync sample and follows it in decode order leans on what lies before
  // it; nothing from the sync sample on needs it.
  const bool leading =
      sample.presentation < syncPresentation_ && !isClearlyBefore(start_, syncPresentation_);
  if (leading) return;
  const Place place = placeOf(sample);
  if (place == Place::Before &&
      (CMTIME_IS_INVALID(lastBefore_) || sample.presentation > lastBefore_)) {
    lastBefore_ = sample.presentation;
  }
  hold(std::move(sample), place);
  if (isClearlyBefore(start_, horizon_.time())) startIsKnown_ = true;
  if (!isClearlyBefore(horizon_.time(), end_)) finish();
}

SegmentWindow::Place SegmentWindow::placeOf(const Sample& sample) const {
  if (!CMTIME_IS_NUMERIC(sample.presentation)) return Place::Hidden;
  if (!isClearlyBefore(sample.presentation, end_)) return Place::Beyond;
  if (sample.decodeOnly) return Place::Hidden;
  return isClearlyBefore(start_, sample.presentation) ? Place::Inside : Place::Before;
}

void SegmentWindow::hold(Sample sample, Place place) {
  if (place != Place::Beyond) ++wanted_;
  held_.push_back({std::move(sample), place});
}

void SegmentWindow::finish() {
  startIsKnown_ = true;
  complete_ = true;
}

bool SegmentWindow::give(Sample& sample) {
  while (!held_.empty()) {
    Held& front = held_.front();
    const Verdict verdict = judge(front);
    if (verdict == Verdict::Wait) return false;
    if (verdict != Verdict::Drop) {
      sample = std::move(front.sample);
      sample.decodeOnly = verdict != Verdict::Show;
    }
    if (front.place != Place::Beyond) --wanted_;
    held_.pop_front();
    if (verdict != Verdict::Drop) return true;
  }
  return false;
}

SegmentWindow::Verdict SegmentWindow::judge(const Held& held) const {
  switch (held.place) {
    case Place::Hidden:
      return Verdict::Hide;
    case Place::Inside:
      return Verdict::Show;
    case Place::Before:
      if (held.sample.presentation < lastBefore_) return Verdict::Hide;
      return startIsKnown_ ? Verdict::Show : Verdict::Wait;
    case Place::Beyond:
      if (wanted_ > 0) return Verdict::Hide;
      return complete_ ? Verdict::Drop : Verdict::Wait;
  }
  return Verdict::Drop;
}

}  // namespace zaffo::media
