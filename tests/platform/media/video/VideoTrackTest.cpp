// SPDX-License-Identifier: Apache-2.0
#include "platform/media/video/VideoTrack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "doubles/MemorySource.h"
#include "platform/media/Encoding.h"

namespace zaffo::media {
namespace {

constexpr int kCount = 24;

class VideoTrackTest : public testing::Test {
 protected:
  explicit VideoTrackTest(PictureScript script = {.options = "g=12;bf=2", .count = kCount})
      : encoded_(encodePictures(script)) {}

  void open() {
    trackID_ = source_->add({.type = AVMediaTypeVideo,
                             .parameters = std::move(encoded_.parameters),
                             .samples = std::move(encoded_.samples),
                             .formats = {}});
    track_ = std::make_unique<VideoTrack>(source_, trackID_);
    track_->setReadyHandler([this] { ++ready_; });
  }
  /// Steps until something comes of it.
  Outcome seekOn() {
    Outcome step = Outcome::Working;
    while (step == Outcome::Working) step = track_->stepSeek(frame_);
    return step;
  }
  Outcome seek(CMTime time, CMTime earliest) {
    track_->beginSeek(time, earliest, time);
    return seekOn();
  }
  Outcome seek(CMTime time) { return seek(time, time); }
  Outcome next() {
    Outcome step = Outcome::Working;
    while (step == Outcome::Working) step = track_->stepNext(frame_);
    return step;
  }
  /// The numbers of all the pictures that follow, of which each is at its own time.
  std::vector<int> rest(Outcome end = Outcome::End) {
    std::vector<int> numbers;
    Outcome step = Outcome::Ready;
    while ((step = next()) == Outcome::Ready) {
      const int number = shown();
      EXPECT_EQ(frame_.presentation, frames(number));
      numbers.push_back(number);
    }
    EXPECT_EQ(step, end);
    return numbers;
  }
  [[nodiscard]] int shown() const { return pictureNumber(frame_.buffer).value_or(-1); }

  static std::vector<int> range(int first, int end = kCount) {
    std::vector<int> numbers;
    for (int i = first; i < end; ++i) numbers.push_back(i);
    return numbers;
  }
  /// The number of the picture that the second group begins with.
  [[nodiscard]] int secondStart() const {
    const auto second = std::find_if(encoded_.samples.begin() + 1, encoded_.samples.end(),
                                     [](const Sample& sample) { return sample.sync; });
    return static_cast<int>(CMTimeConvertScale(second->presentation, kEncodedRate).value);
  }
  static void damage(Sample& sample) {
    ASSERT_GE(av_packet_make_writable(sample.packet.get()), 0);
    std::fill_n(sample.packet->data, sample.packet->size, uint8_t{0});
  }
  Sample& sampleOf(int number) {
    return *std::ranges::find(encoded_.samples, frames(number), &Sample::presentation);
  }

  Encoded encoded_;
  const std::shared_ptr<MemorySource> source_ = std::make_shared<MemorySource>();
  int trackID_ = 0;
  std::unique_ptr<VideoTrack> track_;
  VideoFrame frame_;
  int ready_ = 0;
};

TEST_F(VideoTrackTest, TheFirstFrameComesOutOfItsSampleAlone) {
  open();
  ASSERT_EQ(seek(kCMTimeZero), Outcome::Ready);
  EXPECT_EQ(shown(), 0);
  EXPECT_EQ(source_->reads(), 1);
}

TEST_F(VideoTrackTest, FindsTheFrameShownAtAnyTime) {
  open();
  for (int number = kCount - 1; number >= 0; --number) {
    for (const double into : {0.0, 0.5}) {
      ASSERT_EQ(seek(frames(number + into)), Outcome::Ready);
      ASSERT_EQ(shown(), number);
      ASSERT_EQ(frame_.presentation, frames(number));
    }
  }
}

TEST_F(VideoTrackTest, GivesWhatFollowsWhateverFrameWasFound) {
  open();
  for (int number = 0; number < kCount; ++number) {
    ASSERT_EQ(seek(frames(number)), Outcome::Ready);
    ASSERT_EQ(rest(), range(number + 1)) << number;
  }
}

TEST_F(VideoTrackTest, LeapsToTheLastSyncSampleThatIsDue) {
  const int start = secondStart();
  open();
  ASSERT_EQ(seek(frames(0)), Outcome::Ready);
  track_->hurryTo(frames(start + 5));
  track_->leapTo(frames(start + 5));
  ASSERT_EQ(next(), Outcome::Ready);
  EXPECT_GE(shown(), start);
  EXPECT_GE(track_->takeLate(), static_cast<std::size_t>(start - 1));
  EXPECT_EQ(track_->takeLate(), 0u);
  const int leapt = shown();
  track_->hurryTo(kCMTimeInvalid);
  track_->leapTo(kCMTimeInvalid);
  EXPECT_EQ(rest(), range(leapt + 1));
}

TEST_F(VideoTrackTest, LeapsNowhereWhereNoSyncSampleIsDue) {
  const int start = secondStart();
  open();
  ASSERT_EQ(seek(frames(0)), Outcome::Ready);
  track_->leapTo(frames(start - 1));
  EXPECT_EQ(rest(), range(1));
  EXPECT_EQ(track_->takeLate(), 0u);
}

TEST_F(VideoTrackTest, AnEmptySourceOnTheWayOfALeapIsNotWaitedFor) {
  open();
  ASSERT_EQ(seek(frames(0)), Outcome::Ready);
  source_->let(6);
  track_->leapTo(frames(20));
  EXPECT_EQ(next(), Outcome::Ready) << "what is there is decoded";
}

TEST_F(VideoTrackTest, ASeekToleratesTheSyncFrameThatIsEarlyEnough) {
  const int start = secondStart();
  open();
  ASSERT_EQ(seek(frames(start + 5), frames(start)), Outcome::Ready);
  EXPECT_EQ(shown(), start);
  EXPECT_EQ(source_->reads(), 1);
  EXPECT_EQ(rest(), range(start + 1));
  ASSERT_EQ(seek(frames(start + 5), frames(start + 0.25)), Outcome::Ready);
  EXPECT_EQ(shown(), start + 5);
}

TEST_F(VideoTrackTest, ASeekToleratesTheNextSyncFrameThatIsNotTooLate) {
  const int start = secondStart();
  open();
  const auto seekUpTo = [&](double latest) {
    track_->beginSeek(frames(start - 2), frames(start - 2), frames(latest));
    return seekOn();
  };
  ASSERT_EQ(seekUpTo(start), Outcome::Ready);
  EXPECT_EQ(shown(), start);
  EXPECT_EQ(rest(), range(start + 1));
  ASSERT_EQ(seekUpTo(start - 0.25), Outcome::Ready);
  EXPECT_EQ(shown(), start - 2);
  EXPECT_EQ(rest(), range(start - 1));
}

TEST_F(VideoTrackTest, ASyncFrameThatWouldHaveDoneAndIsDamagedIsLeftForTheOneSought) {
  const int start = secondStart();
  damage(sampleOf(start));
  open();
  track_->beginSeek(frames(start - 2), frames(start - 2), frames(start));
  ASSERT_EQ(seekOn(), Outcome::Ready);
  EXPECT_EQ(shown(), start - 2);
}

TEST_F(VideoTrackTest, ADamagedSyncFrameIsLeftForTheOneSoughtAlsoWhereNothingFollowsThatIsWhole) {
  const int start = secondStart();
  for (Sample& sample : encoded_.samples) {
    if (sample.presentation >= frames(start)) damage(sample);
  }
  open();
  track_->beginSeek(frames(start - 2), frames(start - 2), frames(start));
  ASSERT_EQ(seekOn(), Outcome::Ready);
  EXPECT_EQ(shown(), start - 2);
}

TEST_F(VideoTrackTest, GoesOnAfterAFrameOfMoreBytesThanAreKept) {
  // What follows the slice's end is stuffing.
  Sample& first = encoded_.samples.front();
  const int size = first.packet->size;
  ASSERT_EQ(av_grow_packet(first.packet.get(), 9 << 20), 0);
  std::fill(first.packet->data + size, first.packet->data + first.packet->size, uint8_t{0});
  open();
  ASSERT_EQ(seek(kCMTimeZero), Outcome::Ready);
  EXPECT_EQ(shown(), 0);
  EXPECT_EQ(rest(), range(1));
}

TEST_F(VideoTrackTest, ReadsNoWholeFileForWhatIsShownLongAfterItIsDecoded) {
  constexpr CMTime kHour = CMTimeMake(3600, 1);
  auto& samples = encoded_.samples;
  const std::vector<Sample> group = std::move(samples);
  samples.clear();
  CMTime decode = kCMTimeZero;
  for (int copy = 0; copy < 40; ++copy) {
    for (const Sample& each : group) {
      Sample& sample = samples.emplace_back(copyOf(each));
      sample.presentation = sample.presentation + frames(copy * kCount) + kHour;
      sample.decode = decode;
      decode = decode + frames(1);
    }
  }
  open();
  ASSERT_EQ(seek(kCMTimeZero), Outcome::Ready);
  EXPECT_EQ(frame_.presentation, kHour);
  EXPECT_LT(source_->reads(), 6 * kEncodedRate);
}

TEST_F(VideoTrackTest, WhatFollowsADrainedFrameIsNotReadAgain) {
  open();
  ASSERT_EQ(seek(kCMTimeZero), Outcome::Ready);
  const int reads = source_->reads();
  EXPECT_EQ(rest(), range(1));
  EXPECT_EQ(source_->reads(), reads + kCount - 1) << "none is read twice";
}

TEST_F(VideoTrackTest, BehindTheLastFrameIsTheLastFrame) {
  open();
  ASSERT_EQ(seek(frames(1000)), Outcome::Ready);
  EXPECT_EQ(shown(), kCount - 1);
  EXPECT_EQ(next(), Outcome::End);
}

TEST_F(VideoTrackTest, BeforeTheFirstFrameIsTheFirstFrame) {
  for (Sample& sample : encoded_.samples) sample.presentation = sample.presentation + frames(6);
  open();
  ASSERT_EQ(seek(kCMTimeZero), Outcome::Ready);
  EXPECT_EQ(shown(), 0);
  EXPECT_EQ(frame_.presentation, frames(6));
}

TEST_F(VideoTrackTest, TheFrameAtZeroThatLeansOnOthersComesWithoutThoseBehindIt) {
  // As a composition gives it: what comes before is not shown.
  for (Sample& sample : encoded_.samples) {
    sample.presentation = sample.presentation - frames(6);
    sample.decode = sample.decode - frames(6);
    sample.decodeOnly = sample.presentation < kCMTimeZero;
  }
  open();
  ASSERT_EQ(seek(kCMTimeZero), Outcome::Ready);
  EXPECT_EQ(shown(), 6);
  EXPECT_EQ(frame_.presentation, kCMTimeZero);
  EXPECT_LE(source_->reads(), 7);
  ASSERT_EQ(next(), Outcome::Ready);
  EXPECT_EQ(shown(), 7);
}

TEST_F(VideoTrackTest, ASourceThatHasNothingYetIsWaitedFor) {
  open();
  source_->let(0);
  EXPECT_EQ(seek(frames(5)), Outcome::Again);
  EXPECT_EQ(ready_, 0);
  source_->let(3);
  EXPECT_EQ(ready_, 1);
  EXPECT_EQ(seekOn(), Outcome::Again);
  source_->let(1000);
  EXPECT_EQ(seekOn(), Outcome::Ready);
  EXPECT_EQ(shown(), 5);
  source_->let(0);
  std::vector<int> numbers = rest(Outcome::Again);
  source_->let(1000);
  for (const int number : rest()) numbers.push_back(number);
  EXPECT_EQ(numbers, range(6));
}

TEST_F(VideoTrackTest, ANewerSeekTakesThePlaceOfOneUnderWay) {
  open();
  track_->beginSeek(frames(5), frames(5), frames(5));
  EXPECT_EQ(track_->stepSeek(frame_), Outcome::Working);
  EXPECT_EQ(track_->stepSeek(frame_), Outcome::Working);
  ASSERT_EQ(seek(frames(20)), Outcome::Ready);
  EXPECT_EQ(shown(), 20);
  EXPECT_EQ(rest(), range(21));
}

TEST_F(VideoTrackTest, FramesThatAreLateAreLeftOutIfNoOtherLeansOnThem) {
  open();
  ASSERT_EQ(seek(kCMTimeZero), Outcome::Ready);
  ASSERT_EQ(next(), Outcome::Ready);
  track_->hurryTo(frames(9));
  const std::vector<int> hurried = rest();
  track_->hurryTo(kCMTimeInvalid);
  EXPECT_LT(hurried.size(), range(2).size());
  EXPECT_TRUE(std::ranges::is_sorted(hurried));
  EXPECT_TRUE(std::ranges::includes(hurried, range(10)));
}

TEST_F(VideoTrackTest, TheDecoderMayGoWhileTheFrameOfASyncSampleIsShown) {
  open();
  ASSERT_EQ(seek(kCMTimeZero), Outcome::Ready);
  track_->releaseDecoderIfRebuildable();
  EXPECT_EQ(rest(), range(1));
}

TEST_F(VideoTrackTest, TheDecoderStaysWhereItWouldBeMissed) {
  open();
  ASSERT_EQ(seek(frames(5)), Outcome::Ready);
  const int reads = source_->reads();
  track_->releaseDecoderIfRebuildable();
  ASSERT_EQ(next(), Outcome::Ready);
  EXPECT_EQ(shown(), 6);
  EXPECT_LE(source_->reads(), reads + 4) << "it goes on where it was";
}

TEST_F(VideoTrackTest, GoesOnAfterAFrameThatWasKept) {
  open();
  ASSERT_EQ(seek(kCMTimeZero), Outcome::Ready);
  const VideoFrame kept = frame_;
  ASSERT_EQ(seek(frames(15)), Outcome::Ready);
  ASSERT_EQ(next(), Outcome::Ready);
  track_->resumeAfter(kept.presentation);
  track_->releaseDecoderIfRebuildable();
  EXPECT_EQ(rest(), range(1));
}

TEST_F(VideoTrackTest, HasAnErrorWhenNothingCanBeOpened) {
  open();
  source_->refuseCursors();
  ASSERT_EQ(seek(kCMTimeZero), Outcome::Error);
  ASSERT_TRUE(track_->error());
  EXPECT_EQ(track_->error()->localizedDescription(), "refused");
}

TEST_F(VideoTrackTest, HasAnErrorWhenThereIsNoDecoder) {
  encoded_.parameters->codec_id = AV_CODEC_ID_GIF;
  open();
  ASSERT_EQ(seek(kCMTimeZero), Outcome::Error);
  ASSERT_TRUE(track_->error());
  EXPECT_EQ(track_->error()->code(), AVErrorDecoderNotFound);
}

TEST_F(VideoTrackTest, ASeekThatFailsIsAnErrorAndTheNextOneGoes) {
  open();
  ASSERT_EQ(seek(frames(3)), Outcome::Ready);
  source_->refuseSeeks();
  EXPECT_EQ(seek(frames(4)), Outcome::Error);
  EXPECT_TRUE(track_->error());
  EXPECT_EQ(track_->stepSeek(frame_), Outcome::Error);
}

TEST_F(VideoTrackTest, WhatWasReadBeforeATearIsShownThenTheError) {
  constexpr int kRead = 8;
  std::vector<int> read;
  for (int i = 1; i < kRead; ++i) {
    const CMTime time = encoded_.samples[static_cast<std::size_t>(i)].presentation;
    read.push_back(static_cast<int>(CMTimeConvertScale(time, kEncodedRate).value));
  }
  std::ranges::sort(read);
  open();
  source_->failBehind(kRead);
  ASSERT_EQ(seek(kCMTimeZero), Outcome::Ready);
  EXPECT_EQ(rest(Outcome::Error), read);
  ASSERT_TRUE(track_->error());
  EXPECT_EQ(track_->error()->localizedDescription(), "torn");
}

TEST_F(VideoTrackTest, ATearBeforeTheFirstFrameIsTheErrorOfTheSeek) {
  open();
  source_->failBehind(0);
  ASSERT_EQ(seek(kCMTimeZero), Outcome::Error);
  ASSERT_TRUE(track_->error());
  EXPECT_EQ(track_->error()->localizedDescription(), "torn");
}

TEST_F(VideoTrackTest, ADamagedFrameIsPassedOver) {
  damage(sampleOf(4));  // one that no other leans on
  open();
  ASSERT_EQ(seek(kCMTimeZero), Outcome::Ready);
  std::vector<int> expected = range(1);
  std::erase(expected, 4);
  EXPECT_EQ(rest(), expected);
  ASSERT_EQ(seek(frames(4)), Outcome::Ready);
  EXPECT_EQ(shown(), 3);
}

TEST_F(VideoTrackTest, ADamagedSyncSampleIsPassedOverForTheNextOne) {
  PictureScript everyOneSync{.options = "g=1;bf=0", .count = kCount};
  encoded_ = encodePictures(everyOneSync);
  damage(encoded_.samples[0]);
  open();
  ASSERT_EQ(seek(kCMTimeZero), Outcome::Ready);
  EXPECT_EQ(shown(), 1);
  EXPECT_EQ(rest(), range(2));
}

TEST_F(VideoTrackTest, ATrackWithoutASampleHasNoFrame) {
  encoded_.samples.clear();
  open();
  EXPECT_EQ(seek(kCMTimeZero), Outcome::End);
}

TEST_F(VideoTrackTest, AnotherFormatIsTakenOnWhereSamplesStartAnew) {
  Encoded second = encodePictures({.options = "g=12;bf=2", .count = kCount, .size = 64});
  const std::size_t seam = encoded_.samples.size();
  for (Sample& sample : second.samples) {
    sample.presentation = sample.presentation + frames(kCount);
    sample.decode = sample.decode + frames(kCount);
    encoded_.samples.push_back(std::move(sample));
  }
  encoded_.samples[seam].isDiscontinuity = true;
  trackID_ = source_->add({.type = AVMediaTypeVideo,
                           .parameters = std::move(encoded_.parameters),
                           .samples = std::move(encoded_.samples),
                           .formats = {{seam, second.parameters.get()}}});
  track_ = std::make_unique<VideoTrack>(source_, trackID_);
  ASSERT_EQ(seek(kCMTimeZero), Outcome::Ready);
  std::vector<int> widths(1, frame_.buffer->width), numbers(1, shown());
  while (next() == Outcome::Ready) {
    widths.push_back(frame_.buffer->width);
    numbers.push_back(shown());
  }
  ASSERT_EQ(widths.size(), 2u * kCount);
  EXPECT_EQ(std::ranges::count(widths, 32), kCount);
  EXPECT_EQ(std::ranges::count(widths, 64), kCount);
  EXPECT_TRUE(std::ranges::equal(std::span(numbers).first(kCount), range(0)));
  EXPECT_TRUE(std::ranges::equal(std::span(numbers).last(kCount), range(0)));
}

/// The same with an H.264 stream whose groups lean on those before them.
class OpenGroupVideoTrackTest : public VideoTrackTest {
 protected:
  OpenGroupVideoTrackTest()
      : VideoTrackTest({.codec = "libx264",
                        .options = "g=8;bf=2;x264-params=open-gop=1:scenecut=0",
                        .count = kCount,
                        .closedGroups = false}) {}
};

TEST_F(OpenGroupVideoTrackTest, FindsEveryFrameAndWhatFollowsIt) {
  open();
  for (int number = kCount - 1; number >= 0; --number) {
    ASSERT_EQ(seek(frames(number)), Outcome::Ready);
    EXPECT_EQ(frame_.presentation, frames(number));
    ASSERT_EQ(rest(), range(number + 1)) << number;
  }
}

/// The same with an HEVC stream that was cut at a sync sample with pictures shown before it that
/// lean on nothing earlier.
class LeadingPicturesVideoTrackTest : public VideoTrackTest {
 protected:
  LeadingPicturesVideoTrackTest()
      : VideoTrackTest({.codec = "libx265",
                        .options = "g=8;bf=3;crf=4;x265-params=min-keyint=8:b-adapt=0:radl=2:"
                                   "scenecut=0:log-level=none",
                        .count = kCount,
                        .size = 64}) {
    auto& samples = encoded_.samples;
    samples.erase(samples.begin(),
                  std::ranges::find(samples, frames(secondStart()), &Sample::presentation));
  }
};

TEST_F(LeadingPicturesVideoTrackTest, BeginsWithTheEarliestOfThem) {
  const CMTime first =
      std::ranges::min_element(encoded_.samples, {}, &Sample::presentation)->presentation;
  const auto number = static_cast<int>(CMTimeConvertScale(first, kEncodedRate).value);
  ASSERT_LT(first, encoded_.samples.front().presentation);
  open();
  for (const CMTime target : {kCMTimeZero, first}) {
    ASSERT_EQ(seek(target), Outcome::Ready);
    EXPECT_EQ(shown(), number);
    EXPECT_EQ(rest(), range(number + 1));
  }
}

TEST_F(LeadingPicturesVideoTrackTest, ALateSyncSampleThatNothingCanPrecedeIsTheOnlyOneRead) {
  auto& samples = encoded_.samples;
  const CMTime sync = samples.front().presentation;
  std::erase_if(samples, [sync](const Sample& each) { return each.presentation < sync; });
  tellDecodeTimes(samples);
  open();
  ASSERT_EQ(seek(kCMTimeZero), Outcome::Ready);
  EXPECT_EQ(frame_.presentation, sync);
  EXPECT_EQ(source_->reads(), 1);
}

/// Of pictures so large that decoding a dozen of them takes a person's time.
class LargeVideoTrackTest : public VideoTrackTest {
 protected:
  LargeVideoTrackTest() : VideoTrackTest({.options = "g=12;bf=2", .count = kCount, .size = 960}) {}

  /// The number of the preview, and how many samples were read for it; nothing when there is none
  /// before the frame itself.
  std::optional<std::pair<int, int>> previewOf(int number) {
    const int before = source_->reads();
    track_->beginSeek(frames(number), frames(number), frames(number));
    while (!track_->hasPreview()) {
      if (track_->stepSeek(frame_) != Outcome::Working) return std::nullopt;
    }
    const auto preview = track_->takePreview();
    return std::pair(pictureNumber(preview->buffer).value_or(-1), source_->reads() - before);
  }
};

TEST_F(LargeVideoTrackTest, WhatIsFarBehindItsSyncSampleHasTheFrameOfThatForAPreview) {
  const int second = secondStart();
  open();
  for (const auto& [number, sync] : {std::pair(second + 8, second), {9, 0}, {second + 9, second}}) {
    ASSERT_EQ(previewOf(number), std::pair(sync, 1)) << "one sample read, one frame decoded";
    ASSERT_EQ(seekOn(), Outcome::Ready);
    EXPECT_EQ(shown(), number);
    EXPECT_EQ(rest(), range(number + 1));
  }
}

TEST_F(LargeVideoTrackTest, APreviewThatNobodyTookIsGoneWithTheSearch) {
  open();
  ASSERT_EQ(seek(frames(9)), Outcome::Ready);
  EXPECT_EQ(shown(), 9);
  EXPECT_FALSE(track_->hasPreview());
}

TEST_F(LargeVideoTrackTest, WhatIsNearItsSyncSampleHasNoPreview) {
  const int second = secondStart();
  open();
  for (const int number : {0, 3, second, second + 3}) {
    EXPECT_EQ(previewOf(number), std::nullopt);
    EXPECT_EQ(shown(), number);
  }
}

TEST_F(LargeVideoTrackTest, NorHasWhatIsFoundByItsSyncSampleAnyway) {
  open();
  track_->beginSeek(frames(9), kCMTimeZero, frames(9));
  ASSERT_EQ(seekOn(), Outcome::Ready);
  EXPECT_EQ(shown(), 0);
  EXPECT_EQ(source_->reads(), 1);
}

TEST_F(LargeVideoTrackTest, ASyncSampleThatIsNotShownItselfWillDoForAPreview) {
  encoded_.samples.front().decodeOnly = true;
  open();
  EXPECT_EQ(previewOf(9), std::pair(0, 1));
  ASSERT_EQ(seekOn(), Outcome::Ready);
  EXPECT_EQ(shown(), 9);
}

TEST_F(LargeVideoTrackTest, ADamagedSyncSampleGivesNoPreviewAndTheSearchGoesOn) {
  const int second = secondStart();
  damage(sampleOf(second));
  open();
  EXPECT_EQ(previewOf(second + 9), std::nullopt);
  EXPECT_EQ(source_->seeks(), 2) << "once more from the sync sample on";
}

}  // namespace
}  // namespace zaffo::media
