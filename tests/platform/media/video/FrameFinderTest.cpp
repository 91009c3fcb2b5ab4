// SPDX-License-Identifier: Apache-2.0
#include "platform/media/video/FrameFinder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

#include "doubles/MemorySource.h"
#include "platform/media/Encoding.h"

namespace zaffo::media {
namespace {

constexpr int kCount = 24;

class FrameFinderTest : public testing::Test {
 protected:
  void open() {
    trackID_ = source_->add({.type = AVMediaTypeVideo,
                             .parameters = std::move(encoded_.parameters),
                             .samples = std::move(encoded_.samples),
                             .formats = {}});
    finder_ = std::make_unique<FrameFinder>(source_->openCursor(trackID_).valueOr(nullptr));
    finder_->setReadyHandler([this] { ++readies_; });
  }
  /// Goes on until it is found, there is none, or the source has nothing.
  Outcome go() {
    auto outcome = Outcome::Working;
    while (outcome == Outcome::Working) outcome = finder_->step(frame_);
    error_ = outcome == Outcome::Error ? finder_->error() : nullptr;
    return outcome;
  }
  /// The number of the frame found; nothing when there is none.
  std::optional<int> find(CMTime time) {
    finder_->begin(time);
    return go() == Outcome::Ready ? pictureNumber(frame_.buffer) : std::nullopt;
  }
  static void damage(Sample& sample) {
    ASSERT_GE(av_packet_make_writable(sample.packet.get()), 0);
    std::fill_n(sample.packet->data, sample.packet->size, uint8_t{0});
  }

  Encoded encoded_ = encodePictures({.options = "g=12;bf=2", .count = kCount});
  const std::shared_ptr<MemorySource> source_ = std::make_shared<MemorySource>();
  int trackID_ = 0;
  std::unique_ptr<FrameFinder> finder_;
  VideoFrame frame_;
  int readies_ = 0;
  NSErrorPtr error_;
};

TEST_F(FrameFinderTest, FindsTheFrameShownAtAnyTimeInAnyOrder) {
  open();
  for (int i = 0; i < kCount; ++i) {
    const int number = i * 7 % kCount;
    ASSERT_EQ(find(frames(number)), number);
    ASSERT_EQ(find(frames(number + 0.75)), number);
  }
}

TEST_F(FrameFinderTest, FindsItWithoutDecodeTimesToo) {
  for (Sample& sample : encoded_.samples) sample.decode = kCMTimeInvalid;
  open();
  for (int number = 0; number < kCount; ++number) ASSERT_EQ(find(frames(number)), number);
}

TEST_F(FrameFinderTest, BeforeTheFirstFrameIsTheFirstAndBehindTheLastTheLast) {
  for (Sample& sample : encoded_.samples) {
    sample.presentation = sample.presentation + frames(6);
    sample.decode = sample.decode + frames(6);
  }
  open();
  EXPECT_EQ(find(kCMTimeZero), 0);
  EXPECT_EQ(find(CMTimeMake(-5, 1)), 0);
  EXPECT_EQ(find(CMTimeMake(500, 1)), kCount - 1);
}

TEST_F(FrameFinderTest, AFrameThatIsNotShownIsNotFound) {
  for (Sample& sample : encoded_.samples) {
    const bool isHidden = sample.presentation == frames(5) || sample.presentation == frames(6);
    sample.decodeOnly = isHidden;
  }
  open();
  EXPECT_EQ(find(frames(6.5)), 4);
  EXPECT_EQ(find(frames(7)), 7);
}

TEST_F(FrameFinderTest, ReadsHardlyPastTheFrameItLooksFor) {
  open();
  ASSERT_EQ(find(frames(3)), 3);
  EXPECT_LE(source_->reads(), 2 * 8);
}

TEST_F(FrameFinderTest, ADamagedFrameIsReplacedByTheLastOneBeforeIt) {
  damage(*std::ranges::find(encoded_.samples, frames(4), &Sample::presentation));
  open();
  EXPECT_EQ(find(frames(4)), 3);
  EXPECT_EQ(find(frames(5)), 5);
}

TEST_F(FrameFinderTest, WhatLeansOnSamplesThatWereCutOffIsReplacedByTheSyncSample) {
  encoded_ = encodePictures({.codec = "libx264",
                             .options = "g=8;bf=2;x264-params=open-gop=1:scenecut=0",
                             .count = kCount,
                             .closedGroups = false});
  auto& samples = encoded_.samples;
  const auto second = std::find_if(samples.begin() + 1, samples.end(),
                                   [](const Sample& sample) { return sample.sync; });
  samples.erase(samples.begin(), second);
  const CMTime sync = samples.front().presentation;
  ASSERT_LT(samples[1].presentation, sync);
  const auto number = static_cast<int>(CMTimeConvertScale(sync, kEncodedRate).value);
  open();
  EXPECT_EQ(find(kCMTimeZero), number);
  EXPECT_EQ(find(frames(number)), number);
  EXPECT_EQ(find(frames(number + 1)), number + 1);
}

TEST_F(FrameFinderTest, TellsWhyNoFrameCanBeDecoded) {
  for (Sample& sample : encoded_.samples) damage(sample);
  open();
  EXPECT_EQ(find(frames(4)), std::nullopt);
  ASSERT_TRUE(error_);
  EXPECT_EQ(error_->code(), AVErrorDecodeFailed);
}

TEST_F(FrameFinderTest, TellsWhyTheSourceCannotBeRead) {
  open();
  source_->refuseSeeks();
  EXPECT_EQ(find(frames(4)), std::nullopt);
  ASSERT_TRUE(error_);
  EXPECT_EQ(error_->localizedDescription(), "refused");
}

TEST_F(FrameFinderTest, ATornSourceGivesWhatLiesBeforeTheTear) {
  open();
  source_->failBehind(8);
  EXPECT_EQ(find(frames(3)), 3);
}

TEST_F(FrameFinderTest, TellsThatThereIsNoDecoderWhenOneIsNeeded) {
  encoded_.parameters->codec_id = AV_CODEC_ID_GIF;
  open();
  source_->let(0);
  finder_->begin(frames(4));
  EXPECT_EQ(go(), Outcome::Again) << "none is needed while there is nothing to decode";
  source_->let(kCount);
  EXPECT_EQ(go(), Outcome::Error);
  ASSERT_TRUE(error_);
  EXPECT_EQ(error_->code(), AVErrorDecoderNotFound);
}

TEST_F(FrameFinderTest, NeverWaitsForASourceThatGetsItsSamplesFromAfar) {
  open();
  for (const int number : {0, 5, 13, 23, 2}) {
    source_->let(0);
    finder_->begin(frames(number));
    auto outcome = go();
    for (readies_ = 0; outcome == Outcome::Again; outcome = go()) {
      EXPECT_EQ(go(), Outcome::Again) << "until more has come";
      const int before = readies_;
      source_->let(1);
      ASSERT_EQ(readies_, before + 1);
    }
    EXPECT_GT(readies_, 0);
    EXPECT_EQ(outcome, Outcome::Ready);
    EXPECT_EQ(pictureNumber(frame_.buffer), number);
  }
}

TEST_F(FrameFinderTest, ASearchThatIsGivenUpInTheMidstHasNoPartInTheNext) {
  open();
  for (int steps = 0; steps < 40; ++steps) {
    finder_->begin(frames(20));
    for (int i = 0; i < steps; ++i) static_cast<void>(finder_->step(frame_));
    ASSERT_EQ(find(frames(3)), 3) << "after " << steps << " steps";
  }
}

}  // namespace
}  // namespace zaffo::media
