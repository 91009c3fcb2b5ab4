// SPDX-License-Identifier: Apache-2.0

// Segments that begin far behind a sync sample: what precedes their first frame takes long to
// decode, so it has to be begun early.

#include "platform/media/video/DecodeOnlyRun.h"

#include <span>

#include "platform/media/GatedSource.h"
#include "platform/media/output/CapturedOutput.h"
#include "platform/media/playback/Playback.h"
#include "platform/media/playback/RendererFixture.h"
#include "platform/media/source/Composing.h"

namespace zaffo::media {
namespace {

using test::clip;

constexpr CMTime at(int64_t milliseconds) {
  return CMTimeMake(milliseconds, 1000);
}

Sample sampleAt(CMTime presentation, bool shown) {
  Sample sample;
  sample.presentation = presentation;
  sample.decodeOnly = !shown;
  return sample;
}

/// The beginning of a segment at `start` with so many samples before its first frame.
void send(DecodeOnlyRun& decodeOnlyRun, CMTime start, int notShown) {
  for (int i = 0; i <= notShown; ++i) {
    Sample sample = sampleAt(start, i == notShown);
    sample.isDiscontinuity = i == 0;
    decodeOnlyRun.sent(sample);
  }
}

TEST(DecodeOnlyRun, IsUnderWayUntilTheFirstFrameOfTheSegmentIsOut) {
  DecodeOnlyRun decodeOnlyRun;
  decodeOnlyRun.sent(sampleAt(at(960), true));
  EXPECT_FALSE(decodeOnlyRun.isUnderWay());
  send(decodeOnlyRun, at(1000), 3);
  EXPECT_TRUE(decodeOnlyRun.isUnderWay());
  decodeOnlyRun.gave(at(960));  // still of the segment before
  EXPECT_TRUE(decodeOnlyRun.isUnderWay());
  decodeOnlyRun.gave(at(1000));
  EXPECT_FALSE(decodeOnlyRun.isUnderWay());
}

TEST(DecodeOnlyRun, IsOverWhenTheSamplesGoOnElsewhere) {
  DecodeOnlyRun decodeOnlyRun;
  send(decodeOnlyRun, at(1000), 3);
  decodeOnlyRun.leave();
  EXPECT_FALSE(decodeOnlyRun.isUnderWay());
}

TEST(DecodeOnlyRun, OfAFewSamplesNeedsNoMoreFramesThanAnyOther) {
  DecodeOnlyRun decodeOnlyRun;
  send(decodeOnlyRun, at(1000), 7);
  EXPECT_EQ(decodeOnlyRun.framesAhead(), 0u);
}

TEST(DecodeOnlyRun, TheLongestTellsHowManyFramesHaveToWaitWithinBounds) {
  DecodeOnlyRun decodeOnlyRun;
  send(decodeOnlyRun, at(1000), 32);
  EXPECT_EQ(decodeOnlyRun.framesAhead(), 4u);
  send(decodeOnlyRun, at(2000), 1);
  EXPECT_EQ(decodeOnlyRun.framesAhead(), 4u);
  send(decodeOnlyRun, at(3000), 900);
  EXPECT_EQ(decodeOnlyRun.framesAhead(), 12u);
}

TEST(DecodeOnlyRun, SamplesThatAreNotShownWithinASegmentAreNone) {
  DecodeOnlyRun decodeOnlyRun;
  send(decodeOnlyRun, at(0), 0);
  decodeOnlyRun.gave(at(0));
  for (int i = 0; i < 100; ++i) decodeOnlyRun.sent(sampleAt(at(i), false));
  EXPECT_EQ(decodeOnlyRun.framesAhead(), 0u);
}

/// Eleven times 0.3 s, each with 75 frames before it that are not shown: nine of its own are to
/// wait for that.
class LongDecodeOnlyRunTest : public RendererFixture {
 protected:
  static constexpr std::size_t kAhead = 75 / 8;
  const CMTimeRange part_{at(2500), at(300)};
  const std::shared_ptr<SampleSource> file_ = openClip(clip("long_gop.mp4"));
  const std::shared_ptr<CompositionSource> composition_ =
      compose(std::vector<Cut>(11, Cut{file_, part_}), AVMediaTypeVideo);

  /// Plays on to a segment's beginning and looks at the frames that wait all along.
  std::size_t fewestUntil(CMTime end, const FrameStore& frames, const CMTimebase& timebase) {
    std::size_t fewest = frames.queued();
    while (timebase.time() < end) {
      time_.advance(kNanosecondsPerMillisecond);
      fewest = std::min(fewest, frames.queued());
    }
    return fewest;
  }
};

TEST_F(LongDecodeOnlyRunTest, APlaybackDecodesAsFarAheadAsItTakes) {
  CapturedOutput output;
  const auto playback = Playback::create(composition_, output, {});
  time_.settle();
  playback->setRate(1);
  time_.settle();
  EXPECT_GE(fewestUntil(at(2700), *playback->frames(), *playback->timebase()), kAhead);
  playback->close();
}

/// Whether the last of them are before the first frame of a segment.
bool endsInDecodeOnlyRun(std::span<const Sample> samples) {
  for (std::size_t i = samples.size(); i-- > 0 && samples[i].decodeOnly;) {
    if (samples[i].isDiscontinuity) return true;
  }
  return false;
}

// Where the bursts of decoding fall depends on how many frames a segment has.
TEST_F(LongDecodeOnlyRunTest, APlaybackGoesThroughOneThatItHasBegun) {
  for (int frames = 6; frames < 13; ++frames) {
    const CMTimeRange part{at(1000), CMTimeMake(frames, 30)};
    const auto composition = compose(std::vector<Cut>(9, Cut{file_, part}), AVMediaTypeVideo);
    const auto samples = readAll(*openTrack(*composition, AVMediaTypeVideo));
    const auto source = std::make_shared<GatedSource>(composition);
    CapturedOutput output;
    const auto playback = Playback::create(source, output, {});
    playback->setRate(1);
    while (playback->timebase()->time() < CMTimeMake(6 * frames, 30)) {
      time_.advance(kNanosecondsPerMillisecond);
      const auto read = static_cast<std::size_t>(source->asked(1));
      ASSERT_FALSE(endsInDecodeOnlyRun(std::span(samples).first(std::min(read, samples.size()))))
          << "rests after " << read;
    }
    playback->close();
  }
}

TEST_F(LongDecodeOnlyRunTest, ARendererDecodesAsFarAheadAsItTakes) {
  const auto cursor = openTrack(*composition_, AVMediaTypeVideo);
  auto format = makeFormatDescription(cursor->codecParameters());
  std::vector<QueuedSample> samples;
  for (Sample& sample : readAll(*cursor)) samples.push_back({std::move(sample), format, false});
  start(std::move(samples));
  time_.settle();
  timebase_->setRate(1);
  time_.settle();
  EXPECT_GE(fewestUntil(at(2700), *renderer_->frames(), *timebase_), kAhead);
}

TEST_F(LongDecodeOnlyRunTest, ARendererThatStartsInAGroupKeepsNoMoreThanUsual) {
  auto samples = samplesOf(clip("long_gop.mp4"));
  for (QueuedSample& queued : samples) {
    queued.sample.decodeOnly = queued.sample.presentation < at(2000);
  }
  start(std::move(samples), at(2000));
  time_.settle();
  timebase_->setRate(1);
  time_.settle();
  std::size_t most = 0;
  while (timebase_->time() < at(2800)) {
    time_.advance(kNanosecondsPerMillisecond);
    most = std::max(most, renderer_->frames()->queued());
  }
  EXPECT_LE(most, 5u);
}

}  // namespace
}  // namespace zaffo::media
