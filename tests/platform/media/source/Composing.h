// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "platform/media/Decoding.h"
#include "platform/media/source/CompositionSource.h"

namespace zaffo::media {

/// A range of a source's first track of a kind; a gap of the range's length without a source.
struct Cut {
  std::shared_ptr<SampleSource> source;
  CMTimeRange range;
};

/// A composition whose only track has `cuts` one after the other.
inline std::shared_ptr<CompositionSource> compose(const std::vector<Cut>& cuts, AVMediaType type) {
  auto segments = std::make_shared<std::vector<AVCompositionTrackSegment>>();
  std::vector<std::shared_ptr<SampleSource>> sources;
  AVAssetTrack description;
  description.trackID = 1;
  description.mediaType = type;
  CMTime end = kCMTimeZero;
  for (const Cut& cut : cuts) {
    const auto track = cut.source ? trackOfType(*cut.source, type) : nullptr;
    segments->push_back({track, cut.range, {end, cut.range.duration}});
    end = end + cut.range.duration;
    if (cut.source) sources.push_back(cut.source);
  }
  return CompositionSource::create({{description, segments}}, std::move(sources));
}

/// A picture as a test names it: its number, and when it is on show from.
struct Shown {
  std::optional<int> number;
  CMTime from;

  bool operator==(const Shown& other) const {
    // Sums of times at different timescales are rounded.
    const CMTime apart = CMTimeAbsoluteValue(from - other.from);
    return number == other.number && apart <= CMTimeMake(1, 1'000'000'000);
  }
};

inline std::ostream& operator<<(std::ostream& stream, const Shown& shown) {
  return stream << shown.number.value_or(-1) << " from " << CMTimeDescription(shown.from);
}

/// Fails at the first difference.
inline void expectSame(const std::vector<Shown>& actual, const std::vector<Shown>& expected) {
  EXPECT_EQ(actual.size(), expected.size());
  for (std::size_t i = 0; i < std::min(actual.size(), expected.size()); ++i) {
    ASSERT_EQ(actual[i], expected[i]) << "picture " << i;
  }
}

/// What a file alone shows, in order.
inline std::vector<Shown> picturesOf(const std::string& path) {
  std::vector<Shown> pictures;
  for (const VideoFrame& frame : decodeVideo(path)) {
    pictures.push_back({test::frameNumber(frame.buffer), frame.presentation});
  }
  std::ranges::sort(pictures, {}, [](const Shown& s) { return CMTimeGetSeconds(s.from); });
  return pictures;
}

/// Of `pictures` those on show in `range`, the first one from its start on, moved to `target`.
inline void appendCut(const std::vector<Shown>& pictures, CMTimeRange range, CMTime target,
                      std::vector<Shown>& result) {
  // What begins within a nanosecond of an end begins there.
  const CMTime least = CMTimeMake(1, 1'000'000'000);
  const CMTime end = CMTimeRangeGetEnd(range) - least;
  for (std::size_t i = 0; i < pictures.size() && pictures[i].from < end; ++i) {
    const bool replaced = i + 1 < pictures.size() && pictures[i + 1].from < range.start + least;
    if (replaced) continue;
    result.push_back(
        {pictures[i].number, target + CMTimeMaximum(pictures[i].from - range.start, kCMTimeZero)});
  }
}

/// Decodes from where the cursor stands to its end.
inline std::vector<Shown> decodeShown(SampleCursor& cursor) {
  std::vector<Shown> shown;
  const auto decoder = openVideoDecoder(cursor);
  std::vector<VideoFrame> frames;
  const auto name = [&] {
    for (const VideoFrame& frame : frames) {
      shown.push_back({test::frameNumber(frame.buffer), frame.presentation});
    }
    frames.clear();
  };
  Sample sample;
  while (cursor.next(sample) == Outcome::Ready) {
    EXPECT_TRUE(!sample.isDiscontinuity || decoder->adoptParameters(cursor.codecParameters()));
    EXPECT_EQ(decoder->send(sample), Outcome::Ready);
    (void)collect(*decoder, frames);
    name();
  }
  EXPECT_FALSE(cursor.error());
  decoder->drain();
  (void)collect(*decoder, frames);
  name();
  return shown;
}

}  // namespace zaffo::media
