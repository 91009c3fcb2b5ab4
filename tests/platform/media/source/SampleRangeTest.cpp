// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/SampleRange.h"

#include <gtest/gtest.h>

#include <optional>

#include "doubles/ScriptedSampleSource.h"

namespace zaffo::media {
namespace {

class SampleRangeTest : public testing::Test {
 protected:
  [[nodiscard]] std::unique_ptr<SampleRange> open(CMTime start, CMTime end) {
    return openRange({start, CMTIME_IS_NUMERIC(end) ? end - start : end});
  }
  [[nodiscard]] std::unique_ptr<SampleRange> openRange(CMTimeRange range) {
    auto opened = SampleRange::open(source_, *source_.tracks().front(), range);
    error_ = opened.error();
    return std::move(opened).valueOr(nullptr);
  }
  [[nodiscard]] std::unique_ptr<SampleRange> openFrom(CMTime start) {
    return open(start, kCMTimePositiveInfinity);
  }

  /// The frame number of the next sample, negative when it is not shown; nothing when none comes.
  [[nodiscard]] static std::optional<int> next(SampleRange& range,
                                               Outcome expected = Outcome::Ready) {
    Sample sample;
    const Outcome outcome = range.next(sample);
    EXPECT_EQ(outcome, expected);
    if (outcome != Outcome::Ready) return std::nullopt;
    const auto frame = static_cast<int>(CMTimeConvertScale(sample.presentation, 30).value);
    return !sample.decodeOnly ? frame : -frame;
  }

  /// All of them to the end.
  [[nodiscard]] static std::vector<int> rest(SampleRange& range) {
    std::vector<int> frames;
    Sample sample;
    while (range.next(sample) == Outcome::Ready) {
      const auto frame = static_cast<int>(CMTimeConvertScale(sample.presentation, 30).value);
      frames.push_back(!sample.decodeOnly ? frame : -frame);
    }
    return frames;
  }

  /// Frames 10 to 18: a sync sample, then groups of a reference and three between.
  void addGroup() {
    int decode = 8;
    for (const int presentation : {10, 14, 12, 11, 13, 18, 16, 15, 17}) {
      script().add(decode++, presentation);
    }
  }

  [[nodiscard]] SampleScript& script() { return *source_.script; }

  ScriptedSampleSource source_;
  NSErrorPtr error_;
};

TEST_F(SampleRangeTest, MarksWhatAnotherSampleHasReplacedByTheStart) {
  addGroup();
  const auto range = openFrom(CMTimeMake(13, 30));
  ASSERT_EQ(script().seeks, std::vector{CMTimeMake(13, 30)});
  EXPECT_EQ(rest(*range), (std::vector{-10, 14, -12, -11, 13, 18, 16, 15, 17}));
}

TEST_F(SampleRangeTest, BetweenTwoFramesTheEarlierOneIsTheOneThatShows) {
  addGroup();
  EXPECT_EQ(rest(*openFrom(CMTimeMake(27, 60))),
            (std::vector{-10, 14, -12, -11, 13, 18, 16, 15, 17}));
}

TEST_F(SampleRangeTest, AcrossAGapTheFrameBeforeItIsTheOneThatShows) {
  script().add(0, 0);
  script().add(1, 1);
  script().add(30, 30);
  const auto range = openFrom(CMTimeMake(20, 30));
  Sample sample;
  ASSERT_EQ(range->next(sample), Outcome::Ready);
  EXPECT_TRUE(sample.decodeOnly);
  EXPECT_EQ(rest(*range), (std::vector{1, 30}));
}

TEST_F(SampleRangeTest, ASampleAtTheStartIsGivenWithoutReadingAhead) {
  addGroup();
  const auto range = openFrom(CMTimeMake(10, 30));
  EXPECT_EQ(next(*range), 10);
  EXPECT_EQ(script().reads, 1);
}

TEST_F(SampleRangeTest, ReadsAheadNoFurtherThanItMust) {
  addGroup();
  const auto range = openFrom(CMTimeMake(12, 30));
  EXPECT_EQ(next(*range), -10);
  EXPECT_EQ(script().reads, 3) << "10 is replaced by 12, the third";
  EXPECT_EQ(next(*range), 14);
  EXPECT_EQ(next(*range), 12);
  EXPECT_EQ(next(*range), -11);
  EXPECT_EQ(script().reads, 4);
}

TEST_F(SampleRangeTest, EndsBeforeWhatIsDecodedAtItsEnd) {
  addGroup();
  const auto range = open(CMTimeMake(10, 30), CMTimeMake(13, 30));
  EXPECT_EQ(rest(*range), (std::vector{10, -14, 12, 11, -13})) << "14 is needed for 12 and 11";
  EXPECT_EQ(next(*range, Outcome::End), std::nullopt);
  EXPECT_EQ(script().reads, 6);
}

TEST_F(SampleRangeTest, WhatTheSourceHidesStaysHiddenAndReplacesNothing) {
  script().add(0, 8);
  script().add(1, 9).sample.decodeOnly = true;
  script().add(12, 12);
  EXPECT_EQ(rest(*openFrom(CMTimeMake(10, 30))), (std::vector{8, -9, 12}));
}

TEST_F(SampleRangeTest, WithoutDecodeTimesLooksAsFarAsCodecsReorder) {
  for (const int presentation : {10, 14, 12, 11, 13, 18, 16, 15, 17}) {
    script().add(0, presentation).sample.decode = kCMTimeInvalid;
  }
  for (int frame = 19; frame < 60; ++frame) {
    script().add(0, frame).sample.decode = kCMTimeInvalid;
  }
  const auto range = open(CMTimeMake(15, 30), CMTimeMake(20, 30));
  const std::vector<int> frames = rest(*range);
  EXPECT_EQ(std::vector(frames.begin(), frames.begin() + 10),
            (std::vector{-10, -14, -12, -11, -13, 18, 16, 15, 17, 19}));
  for (std::size_t i = 10; i < frames.size(); ++i) EXPECT_LE(frames[i], -20);
  EXPECT_EQ(frames.size(), 10u + 16);
}

TEST_F(SampleRangeTest, ASampleWithoutTimesIsGivenAsItIs) {
  script().add(0, 8);
  Sample& unknown = script().add(0, 0).sample;
  unknown.presentation = unknown.decode = kCMTimeInvalid;
  script().add(11, 11);
  const auto range = open(CMTimeMake(10, 30), CMTimeMake(20, 30));
  EXPECT_EQ(next(*range), 8);
  Sample sample;
  ASSERT_EQ(range->next(sample), Outcome::Ready);
  EXPECT_TRUE(CMTIME_IS_INVALID(sample.presentation));
  EXPECT_EQ(next(*range), 11);
  EXPECT_EQ(next(*range, Outcome::End), std::nullopt);
}

TEST_F(SampleRangeTest, WaitsWithWhatItReadAheadUntilItIsKnown) {
  script().open = true;
  script().add(8, 10);
  const auto range = openFrom(CMTimeMake(12, 30));
  EXPECT_EQ(next(*range, Outcome::Again), std::nullopt);
  EXPECT_EQ(next(*range, Outcome::Again), std::nullopt);
  script().add(9, 12);
  EXPECT_EQ(next(*range), -10);
  EXPECT_EQ(next(*range), 12);
  EXPECT_EQ(next(*range, Outcome::Again), std::nullopt);
  script().open = false;
  EXPECT_EQ(next(*range, Outcome::End), std::nullopt);
}

TEST_F(SampleRangeTest, GivesWhatItReadAheadBeforeItTellsOfAnError) {
  script().add(8, 10);
  script().add(9, 11);
  script().steps.emplace_back().outcome = Outcome::Error;
  const auto range = openFrom(CMTimeMake(12, 30));
  EXPECT_EQ(next(*range), -10);
  EXPECT_EQ(next(*range), 11);
  EXPECT_NE(range->error(), nullptr);
  EXPECT_EQ(next(*range, Outcome::Error), std::nullopt);
  EXPECT_EQ(next(*range, Outcome::Error), std::nullopt);
}

TEST_F(SampleRangeTest, TheFormatIsOneObjectUntilItChanges) {
  script().add(0, 0);
  script().add(1, 1);
  script().add(2, 2).sample.isDiscontinuity = true;
  auto& changed = script().add(3, 3);
  changed.sample.isDiscontinuity = true;
  changed.width = 32;
  const auto range = openFrom(kCMTimeZero);
  std::vector<std::shared_ptr<const CMFormatDescription>> formats;
  while (formats.size() < 4) {
    EXPECT_TRUE(next(*range).has_value());
    formats.push_back(range->format());
  }
  ASSERT_NE(formats[0], nullptr);
  EXPECT_EQ(formats[1], formats[0]);
  EXPECT_EQ(formats[2], formats[0]) << "a decoder can go on with it";
  EXPECT_NE(formats[3], formats[0]);
  EXPECT_EQ(formats[0]->width(), 16);
  EXPECT_EQ(formats[3]->width(), 32);
}

TEST_F(SampleRangeTest, ASampleReadAheadKeepsItsOwnFormat) {
  script().add(0, 0);
  auto& changed = script().add(1, 1);
  changed.sample.isDiscontinuity = true;
  changed.width = 32;
  const auto range = openFrom(CMTimeMake(1, 30));
  EXPECT_EQ(next(*range), 0);
  EXPECT_EQ(script().reads, 2);
  EXPECT_EQ(range->format()->width(), 16);
  EXPECT_EQ(next(*range), 1);
  EXPECT_EQ(range->format()->width(), 32);
}

TEST_F(SampleRangeTest, HoldsNothingBeyondTheTrackOrWithoutLengthAndOpensNoCursor) {
  addGroup();
  for (const auto& [start, duration] : {std::pair{CMTimeMake(10, 1), kCMTimePositiveInfinity},
                                        {CMTimeMake(11, 1), CMTimeMake(1, 1)},
                                        {kCMTimePositiveInfinity, kCMTimePositiveInfinity},
                                        {CMTimeMake(1, 1), kCMTimeZero},
                                        {CMTimeMake(1, 1), CMTimeMake(-1, 1)}}) {
    const auto range = openRange({start, duration});
    ASSERT_TRUE(range);
    EXPECT_EQ(next(*range, Outcome::End), std::nullopt) << CMTimeDescription(start);
  }
  EXPECT_EQ(source_.cursors, 0);
}

TEST_F(SampleRangeTest, ATimeThatIsNoNumberStandsForTheBeginningOrTheEnd) {
  for (const CMTime start :
       {kCMTimeInvalid, kCMTimeIndefinite, kCMTimeNegativeInfinity, CMTimeMake(-3, 1)}) {
    for (const CMTime duration : {kCMTimeInvalid, kCMTimeIndefinite, kCMTimePositiveInfinity}) {
      script().steps.clear();
      script().add(-1, 0);
      script().add(30, 30);
      const auto range = openRange({start, duration});
      ASSERT_TRUE(range);
      EXPECT_EQ(rest(*range), (std::vector{0, 30}))
          << CMTimeDescription(start) << CMTimeDescription(duration);
    }
  }
  EXPECT_TRUE(script().seeks.empty()) << "a cursor stands at the beginning";
}

TEST_F(SampleRangeTest, TellsWhyTheStartCannotBeRead) {
  script().refusesSeeks = true;
  EXPECT_EQ(openFrom(CMTimeMake(1, 1)), nullptr);
  EXPECT_NE(error_, nullptr);
  source_.refusal = makeError(AVErrorUnknown, "refused");
  EXPECT_EQ(openFrom(kCMTimeZero), nullptr);
  EXPECT_EQ(error_, source_.refusal);
}

}  // namespace
}  // namespace zaffo::media
