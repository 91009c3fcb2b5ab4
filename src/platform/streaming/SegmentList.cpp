// SPDX-License-Identifier: Apache-2.0
#include "platform/streaming/SegmentList.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace zaffo::streaming {
namespace {

/// Lists round durations, some to whole seconds.
constexpr double kRounding = 0.5;

}  // namespace

SegmentList::SegmentList(network::Playlist playlist)
    : targetSeconds_(playlist.targetSeconds), isEnded_(playlist.isEnded) {
  double start = 0;
  int run = 0;
  entries_.reserve(playlist.segments.size());
  for (network::MediaSegment& segment : playlist.segments) {
    if (segment.isDiscontinuous && !entries_.empty()) ++run;
    const double seconds = segment.seconds;
    entries_.push_back({std::move(segment), start, run});
    start += seconds;
  }
}

void SegmentList::startNearEnd() {
  const double place = end() - 3 * targetSeconds_;
  if (isEmpty() || place <= 0) return;
  entries_.erase(entries_.begin(), entries_.begin() + (numberFor(place) - firstNumber()));
  const double start = entries_.front().start;
  for (Entry& entry : entries_) entry.start -= start;
}

bool SegmentList::goOn(network::Playlist newer) {
  targetSeconds_ = newer.targetSeconds;
  isEnded_ = newer.isEnded;
  if (newer.segments.empty()) return isEnded_;
  const int64_t known = endNumber();
  const int64_t first = newer.segments.front().number;
  // Of what never was listed nothing is known but that there was something.
  double start = end() + static_cast<double>(std::max<int64_t>(0, first - known)) * targetSeconds_;
  int run = entries_.back().run + (first > known ? 1 : 0);
  std::erase_if(entries_, [first](const Entry& entry) { return entry.media.number < first; });
  for (network::MediaSegment& segment : newer.segments) {
    if (segment.number < known) continue;
    if (segment.isDiscontinuous) ++run;
    const double seconds = segment.seconds;
    entries_.push_back({std::move(segment), start, run});
    start += seconds;
  }
  return isEnded_ || endNumber() > known;
}

int64_t SegmentList::numberFor(double seconds) const {
  const auto after = std::ranges::upper_bound(entries_, seconds, {}, &Entry::start);
  return after == entries_.begin() ? firstNumber() : (after - 1)->media.number;
}

double SegmentList::end() const {
  return isEmpty() ? 0 : entries_.back().start + entries_.back().media.seconds;
}

bool SegmentList::isAlignedWith(const SegmentList& other) const {
  const auto isSame = [](const Entry& a, const Entry& b) {
    return a.media.number == b.media.number && a.run == b.run &&
           std::abs(a.start - b.start) <= kRounding;
  };
  return isEnded_ == other.isEnded_ && std::ranges::equal(entries_, other.entries_, isSame);
}

}  // namespace zaffo::streaming
