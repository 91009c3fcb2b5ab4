// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/SegmentReader.h"

#include "platform/foundation/AVError.h"
#include "platform/media/Decoding.h"
#include "platform/media/source/LocalByteSource.h"

namespace zaffo::media {
namespace {

/// Reads a segment whose bytes are all held.
struct ReadSegment {
  ReadSegment(const std::string& name, AVMediaType type)
      : task(*LocalByteSource::open(test::clip("streams/" + name))) {
    const bool ended = task.run([&] {
      auto opened = SegmentReader::open(task, type);
      if (!opened) {
        error = opened.error();
        return;
      }
      const auto reader = *std::move(opened);
      start = reader->start();
      for (const auto& described : reader->describe()) tracks.push_back(described.track);
      for (Sample sample; (outcome = reader->next(sample)) == Outcome::Ready; sample = {}) {
        samples.push_back(std::move(sample));
      }
    });
    EXPECT_TRUE(ended);
  }

  ReadTask task;
  NSErrorPtr error;
  CMTime start;
  std::vector<std::shared_ptr<AVAssetTrack>> tracks;
  std::vector<Sample> samples;
  Outcome outcome = Outcome::Error;
};

TEST(SegmentReader, GivesThePicturesOfASegmentOnItsOwnTimeLine) {
  const ReadSegment segment("ts/1.ts", AVMediaTypeVideo);
  ASSERT_FALSE(segment.error) << textOf(segment.error);
  EXPECT_EQ(segment.outcome, Outcome::End);
  ASSERT_EQ(segment.samples.size(), 60U);
  EXPECT_TRUE(segment.samples.front().sync);
  EXPECT_EQ(segment.samples.front().presentation, segment.start);
  CMTime least = segment.start, last = segment.start;
  for (const Sample& sample : segment.samples) {
    least = CMTimeMinimum(least, sample.presentation);
    last = CMTimeMaximum(last, sample.presentation);
    EXPECT_LE(sample.decode, sample.presentation);
  }
  EXPECT_EQ(least, segment.start);
  EXPECT_EQ(last - least, CMTimeMake(59, 30));
}

TEST(SegmentReader, WhoReadsTheSoundFindsTheSameStart) {
  const ReadSegment pictures("ts/1.ts", AVMediaTypeVideo), sound("ts/1.ts", AVMediaTypeAudio);
  ASSERT_FALSE(sound.error) << textOf(sound.error);
  EXPECT_EQ(sound.start, pictures.start);
  EXPECT_GT(sound.samples.size(), 90U);
  ASSERT_EQ(sound.tracks.size(), 2U);
  EXPECT_EQ(sound.tracks[0]->mediaType, AVMediaTypeVideo);
  EXPECT_EQ(sound.tracks[1]->codec, "aac");
}

TEST(SegmentReader, ASegmentWithoutTheTrackHasNoSamples) {
  const ReadSegment segment("sound/1.ts", AVMediaTypeVideo);
  EXPECT_FALSE(segment.error);
  EXPECT_TRUE(segment.samples.empty());
  EXPECT_EQ(segment.outcome, Outcome::End);
  EXPECT_TRUE(CMTIME_IS_NUMERIC(segment.start));
}

TEST(SegmentReader, RefusesWhatIsNoSegment) {
  EXPECT_EQ(ReadSegment("ts/list.m3u8", AVMediaTypeVideo).error->code(),
            AVErrorFileFormatNotRecognized);
}

}  // namespace
}  // namespace zaffo::media
