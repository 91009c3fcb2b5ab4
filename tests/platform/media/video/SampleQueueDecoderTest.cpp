// SPDX-License-Identifier: Apache-2.0
#include "platform/media/video/SampleQueueDecoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "doubles/ManualTime.h"
#include "platform/RecentTimes.h"
#include "platform/media/Encoding.h"
#include "platform/media/SampleBuffers.h"

namespace zaffo::media {
namespace {

constexpr int kCount = 24;

/// A queue with the samples of a script, and what is decoded of it.
class SampleQueueDecoderTest : public testing::Test {
 protected:
  using Demand = SampleQueueDecoder::Demand;

  explicit SampleQueueDecoderTest(const PictureScript& script = {.options = "g=12;bf=2",
                                                                 .count = kCount})
      : encoded_(encodePictures(script)), format_(makeFormatDescription(*encoded_.parameters)) {}

  /// So many samples more come, the very first of which may be wanted at once.
  void push(std::size_t count, bool atOnce = false) {
    for (; count > 0 && next_ < encoded_.samples.size(); --count, ++next_) {
      (void)queue_.push({std::move(encoded_.samples[next_]), format_, atOnce && next_ == 0});
    }
  }
  /// Steps until something comes of it.
  Outcome step(const Demand& demand) {
    Outcome outcome = Outcome::Working;
    while (outcome == Outcome::Working) outcome = decoder_.step(demand, picture_);
    return outcome;
  }
  /// The numbers of the frames that are given as time goes on by a frame each, from `first` on.
  std::vector<int> play(int first, int end = kCount) {
    std::vector<int> numbers;
    for (int now = first; now < end; ++now) {
      const Demand demand{.now = frames(now), .noneComing = true, .haveAllCome = true};
      while (step(demand) == Outcome::Ready) {
        EXPECT_EQ(picture_.frame.presentation, frames(shown()));
        numbers.push_back(shown());
      }
    }
    return numbers;
  }
  [[nodiscard]] int shown() const { return pictureNumber(picture_.frame.buffer).value_or(-1); }

  static std::vector<int> range(int first, int end = kCount) {
    std::vector<int> numbers;
    for (int i = first; i < end; ++i) numbers.push_back(i);
    return numbers;
  }
  Sample& sampleOf(int number) {
    return *std::ranges::find(encoded_.samples, frames(number), &Sample::presentation);
  }
  static void damage(Sample& sample) {
    ASSERT_GE(av_packet_make_writable(sample.packet.get()), 0);
    std::fill_n(sample.packet->data, sample.packet->size, uint8_t{0});
  }
  void begin() { decoder_.begin(); }

  Encoded encoded_;
  const std::shared_ptr<const CMFormatDescription> format_;
  std::size_t next_ = 0;
  SampleQueue queue_;
  SampleQueueDecoder decoder_{queue_};
  SampleQueueDecoder::Picture picture_;
};

/// One that takes each sample only when it is sent for the second time.
class ReluctantDecoder final : public VideoDecoder {
 public:
  explicit ReluctantDecoder(std::unique_ptr<VideoDecoder> inner) : inner_(std::move(inner)) {}
  Outcome send(const Sample& sample) override {
    return (refuses_ = !refuses_) ? Outcome::Again : inner_->send(sample);
  }
  [[nodiscard]] bool adoptParameters(const AVCodecParameters& parameters) override {
    return inner_->adoptParameters(parameters);
  }
  Outcome receive(VideoFrame& frame) override { return inner_->receive(frame); }
  void drain() override { inner_->drain(); }
  void reset() override { inner_->reset(); }
  void holdBackBefore(CMTime time) override { inner_->holdBackBefore(time); }
  [[nodiscard]] CMTime heldBack() const override { return inner_->heldBack(); }
  Outcome receiveHeldBack(VideoFrame& frame) override { return inner_->receiveHeldBack(frame); }
  void forgetHeldBack() override { inner_->forgetHeldBack(); }
  void setSkipsUnreferencedFrames(bool skips) override {
    inner_->setSkipsUnreferencedFrames(skips);
  }
  [[nodiscard]] NSErrorPtr error() const override { return inner_->error(); }

 private:
  const std::unique_ptr<VideoDecoder> inner_;
  bool refuses_ = false;
};

TEST_F(SampleQueueDecoderTest, ASampleThatTheDecoderDoesNotTakeYetIsSentAgain) {
  SampleQueueDecoder decoder(
      queue_, [](const AVCodecParameters& parameters) -> Result<std::unique_ptr<VideoDecoder>> {
        return std::make_unique<ReluctantDecoder>(VideoDecoder::open(parameters).valueOr(nullptr));
      });
  push(kCount);
  decoder.begin();
  for (int number = 0; number < kCount; ++number) {
    const Demand demand{.now = frames(number), .noneComing = true, .haveAllCome = true};
    Outcome outcome = Outcome::Working;
    while (outcome == Outcome::Working) outcome = decoder.step(demand, picture_);
    ASSERT_EQ(outcome, Outcome::Ready);
    ASSERT_EQ(shown(), number);
  }
}

/// One that takes a millisecond for each sample.
class SlowDecoder final : public VideoDecoder {
 public:
  SlowDecoder(std::unique_ptr<VideoDecoder> inner, ManualTime& time)
      : inner_(std::move(inner)), time_(time) {}
  Outcome send(const Sample& sample) override {
    time_.leap(kNanosecondsPerMillisecond);
    return inner_->send(sample);
  }
  [[nodiscard]] bool adoptParameters(const AVCodecParameters& parameters) override {
    return inner_->adoptParameters(parameters);
  }
  Outcome receive(VideoFrame& frame) override { return inner_->receive(frame); }
  void drain() override { inner_->drain(); }
  void reset() override { inner_->reset(); }
  void holdBackBefore(CMTime time) override { inner_->holdBackBefore(time); }
  [[nodiscard]] CMTime heldBack() const override { return inner_->heldBack(); }
  Outcome receiveHeldBack(VideoFrame& frame) override { return inner_->receiveHeldBack(frame); }
  void forgetHeldBack() override { inner_->forgetHeldBack(); }
  void setSkipsUnreferencedFrames(bool skips) override {
    inner_->setSkipsUnreferencedFrames(skips);
  }
  [[nodiscard]] NSErrorPtr error() const override { return inner_->error(); }

 private:
  const std::unique_ptr<VideoDecoder> inner_;
  ManualTime& time_;
};

TEST_F(SampleQueueDecoderTest, AFrameTakesAsLongAsAllThatItNeedsAndNoWaiting) {
  ManualTime time;
  time.advance(kNanosecondsPerSecond);  // whatever was decoded before
  SampleQueueDecoder decoder(
      queue_, [&](const AVCodecParameters& parameters) -> Result<std::unique_ptr<VideoDecoder>> {
        return std::make_unique<SlowDecoder>(VideoDecoder::open(parameters).valueOr(nullptr), time);
      });
  const auto stepTo = [&](int number) {
    const Demand demand{.now = frames(number), .noneComing = true, .haveAllCome = true};
    Outcome outcome = Outcome::Working;
    while (outcome == Outcome::Working) outcome = decoder.step(demand, picture_);
    return outcome;
  };
  push(kCount);
  decoder.begin();
  ASSERT_EQ(stepTo(10), Outcome::Ready);
  const RecentTimes first = recentTimes(TimedWork::Decoding);
  EXPECT_EQ(first.count, 1u);
  EXPECT_GE(first.longest, 2 * kNanosecondsPerMillisecond) << "with the frames before it";
  time.advance(kNanosecondsPerSecond);  // between two frames, which is nobody's work
  for (int number = 11; number < kCount; ++number) ASSERT_EQ(stepTo(number), Outcome::Ready);
  EXPECT_EQ(recentTimes(TimedWork::Decoding).count, static_cast<std::size_t>(kCount - 11));
  EXPECT_EQ(recentTimes(TimedWork::Decoding).median, kNanosecondsPerMillisecond);
}

TEST_F(SampleQueueDecoderTest, ALetGoDecoderGoesOnBehindThePictureOnShow) {
  push(kCount);
  begin();
  ASSERT_EQ(play(0, 18), range(0, 18));
  ASSERT_TRUE(decoder_.hasDecoder());
  ASSERT_TRUE(decoder_.letGo(frames(17)));
  EXPECT_FALSE(decoder_.hasDecoder());
  EXPECT_EQ(play(18), range(18));
}

TEST_F(SampleQueueDecoderTest, TheFrameWantedAtOnceComesOutOfItsSampleAlone) {
  push(1, true);
  begin();
  ASSERT_EQ(step({.now = frames(9)}), Outcome::Ready);
  EXPECT_EQ(shown(), 0);
  EXPECT_TRUE(picture_.atOnce);
  EXPECT_FALSE(picture_.isStandIn);
  EXPECT_TRUE(decoder_.isSpent());
}

TEST_F(SampleQueueDecoderTest, WhatFollowsADrainedFrameIsDecodedFromTheSyncSampleAgain) {
  push(kCount, true);
  begin();
  ASSERT_EQ(step({.now = frames(0)}), Outcome::Ready);
  EXPECT_FALSE(decoder_.takeRewind());
  EXPECT_EQ(play(1), range(1));
  EXPECT_TRUE(decoder_.takeRewind());
  EXPECT_FALSE(decoder_.takeRewind());
}

/// The queue is flushed and the samples of the same script come once more.
class RewoundDecoderTest : public SampleQueueDecoderTest {
 protected:
  static constexpr PictureScript kScript{.options = "g=12;bf=2", .count = kCount};

  RewoundDecoderTest() : SampleQueueDecoderTest(kScript) {
    push(kCount, true);
    begin();
    EXPECT_EQ(step({.now = frames(0)}), Outcome::Ready);
    first_ = picture_.frame.buffer;
    EXPECT_EQ(play(1, 9), range(1, 9));
  }
  void rewind() {
    (void)queue_.flush();
    encoded_ = encodePictures(kScript);
    next_ = 0;
  }

  /// Whether the pixels are those that were decoded first.
  [[nodiscard]] bool isFirst() const {
    return picture_.frame.buffer->planes[0].data == first_->planes[0].data;
  }

  CVPixelBufferPtr first_;
};

TEST_F(RewoundDecoderTest, TheFirstFrameIsTheOneThatWasDecodedBefore) {
  rewind();
  push(kCount, true);
  begin();
  ASSERT_EQ(step({.now = frames(0)}), Outcome::Ready);
  EXPECT_TRUE(isFirst());
  EXPECT_NE(picture_.frame.buffer, first_) << "another buffer for another picture";
  EXPECT_EQ(picture_.frame.presentation, frames(0));
  EXPECT_TRUE(picture_.atOnce);
  EXPECT_EQ(play(1), range(1)) << "those that follow are decoded";
}

TEST_F(RewoundDecoderTest, AnotherSampleAtTheSameTimeIsDecoded) {
  rewind();
  const auto other = std::find_if(encoded_.samples.begin() + 1, encoded_.samples.end(),
                                  [](const Sample& sample) { return sample.sync; });
  std::swap(encoded_.samples[0].packet, other->packet);
  const CMTime time = other->presentation;
  push(1, true);
  begin();
  ASSERT_EQ(step({.now = frames(0)}), Outcome::Ready);
  EXPECT_EQ(frames(shown()), time);
}

TEST_F(RewoundDecoderTest, TheSameSampleAtAnotherTimeIsDecoded) {
  rewind();
  encoded_.samples[0].presentation = frames(0.5);
  push(1, true);
  begin();
  ASSERT_EQ(step({.now = frames(1)}), Outcome::Ready);
  EXPECT_FALSE(isFirst());
  EXPECT_EQ(shown(), 0);
}

TEST_F(RewoundDecoderTest, AFirstFrameThatIsNotOnShowCanBeForgotten) {
  EXPECT_FALSE(decoder_.keepsOtherThan(frames(0)));
  ASSERT_TRUE(decoder_.keepsOtherThan(frames(8)));
  decoder_.forgetFirst();
  EXPECT_FALSE(decoder_.keepsOtherThan(frames(8)));
  rewind();
  push(1, true);
  begin();
  ASSERT_EQ(step({.now = frames(0)}), Outcome::Ready);
  EXPECT_FALSE(isFirst());
}

TEST_F(SampleQueueDecoderTest, OfTheFramesThatAreDueTheLastAloneIsGiven) {
  push(kCount);
  begin();
  for (const double now : {7.0, 9.5, 20.0}) {
    ASSERT_EQ(step({.now = frames(now)}), Outcome::Ready);
    EXPECT_EQ(shown(), static_cast<int>(now));
    EXPECT_EQ(step({.now = frames(now)}), Outcome::End) << "that was all";
  }
  EXPECT_GT(decoder_.takeLate(), 0u);
  EXPECT_EQ(decoder_.takeLate(), 0u);
}

TEST_F(SampleQueueDecoderTest, FramesThatAreNotDueAreDecodedAheadAlone) {
  for (Sample& sample : encoded_.samples) sample.presentation = sample.presentation + frames(3);
  tellDecodeTimes(encoded_.samples);
  push(kCount);
  begin();
  EXPECT_EQ(step({.now = frames(2)}), Outcome::End);
  ASSERT_EQ(step({.now = frames(2), .ahead = true}), Outcome::Ready);
  EXPECT_EQ(shown(), 0);
}

TEST_F(SampleQueueDecoderTest, AsksForSamplesUntilTheLastFrameThatIsDueIsKnown) {
  begin();
  EXPECT_EQ(step({.now = frames(1), .ahead = true}), Outcome::Again);
  push(2);
  EXPECT_EQ(step({.now = frames(1), .ahead = true}), Outcome::Again);
  EXPECT_FALSE(decoder_.isSettled());
  push(kCount);
  ASSERT_EQ(step({.now = frames(1), .ahead = true}), Outcome::Ready);
  EXPECT_EQ(shown(), 1);
}

TEST_F(SampleQueueDecoderTest, WhatTheDecoderHoldsIsHadWhenNoSampleIsOnItsWay) {
  push(kCount);
  begin();
  ASSERT_EQ(step({.now = frames(100), .noneComing = true}), Outcome::Ready);
  EXPECT_EQ(shown(), kCount - 1);
}

TEST_F(SampleQueueDecoderTest, ALateFrameIsGivenWhenNothingWasShownForLong) {
  push(4);
  begin();
  ASSERT_EQ(step({.now = frames(20)}), Outcome::Again);
  EXPECT_TRUE(decoder_.holdsLateFrame());
  ASSERT_EQ(step({.now = frames(20), .overdue = true}), Outcome::Ready);
  EXPECT_LT(shown(), 4);
}

TEST_F(SampleQueueDecoderTest, ASoughtFrameComesWithItsSampleAndThoseItLeansOn) {
  const auto needed = std::ranges::find(encoded_.samples, frames(1), &Sample::presentation) -
                      encoded_.samples.begin() + 1;
  push(static_cast<std::size_t>(needed));
  begin();
  ASSERT_EQ(step({.now = frames(1), .ahead = true, .sought = frames(1)}), Outcome::Ready);
  EXPECT_EQ(shown(), 1);
  push(kCount);
  EXPECT_EQ(play(2), range(2));
}

TEST_F(SampleQueueDecoderTest, WhatWasSentBesideASoughtFrameIsNotLostAtTheEnd) {
  // In the order of decoding 0, 3, 1: the frame after the one that is sought is in, too.
  push(3);
  begin();
  ASSERT_EQ(step({.now = frames(1), .ahead = true, .sought = frames(1)}), Outcome::Ready);
  EXPECT_EQ(shown(), 1);
  EXPECT_EQ(play(2, 5), std::vector<int>(1, 3));
}

TEST_F(SampleQueueDecoderTest, ASoughtFrameThatIsDamagedGivesWayToTheNext) {
  damage(sampleOf(0));
  for (Sample& sample : encoded_.samples) sample.sync = true;
  push(kCount);
  begin();
  const Demand demand{.now = frames(0), .ahead = true, .sought = frames(0)};
  ASSERT_EQ(step(demand), Outcome::Ready);
  EXPECT_GT(picture_.frame.presentation, frames(0));
}

TEST_F(SampleQueueDecoderTest, AFlushedQueueGivesNothingUntilItIsBegunAnew) {
  push(8);
  begin();
  ASSERT_EQ(step({.now = frames(3)}), Outcome::Ready);
  (void)queue_.flush();
  EXPECT_EQ(step({.now = frames(5)}), Outcome::Again);
  while (!encoded_.samples[next_].sync) ++next_;
  push(kCount);
  EXPECT_EQ(step({.now = frames(5)}), Outcome::Again);
  begin();
  ASSERT_EQ(step({.now = frames(20), .noneComing = true}), Outcome::Ready);
  EXPECT_EQ(shown(), 20);
}

TEST_F(SampleQueueDecoderTest, FailsWhenNothingOfAllThereIsCanBeDecoded) {
  for (Sample& sample : encoded_.samples) damage(sample);
  push(kCount);
  begin();
  EXPECT_EQ(step({.now = frames(3), .noneComing = true}), Outcome::End) << "more may come";
  EXPECT_EQ(step({.now = frames(3), .ahead = true, .noneComing = true, .haveAllCome = true}),
            Outcome::Error);
  EXPECT_TRUE(decoder_.error());
}

TEST_F(SampleQueueDecoderTest, GoesBackToAFrameWhoseSamplesAreHeld) {
  push(kCount);
  begin();
  ASSERT_EQ(step({.now = frames(8)}), Outcome::Ready);
  ASSERT_TRUE(decoder_.goBackTo(frames(2)));
  ASSERT_EQ(step({.now = frames(2)}), Outcome::Ready);
  EXPECT_EQ(shown(), 2);
  EXPECT_FALSE(decoder_.goBackTo(frames(-1)));
}

TEST_F(SampleQueueDecoderTest, TheDecoderIsLetGoOfWhereItIsSoonHadAgain) {
  push(kCount);
  begin();
  ASSERT_EQ(step({.now = frames(3)}), Outcome::Ready);
  EXPECT_FALSE(decoder_.letGoIfCheap(kCMTimeInvalid)) << "nothing is on show";
  EXPECT_TRUE(decoder_.letGoIfCheap(frames(3)));
  EXPECT_TRUE(decoder_.isSpent());
  EXPECT_EQ(play(4), range(4));
}

/// The same with a stream whose frames are decoded in the order in which they are shown.
class InOrderDecoderTest : public SampleQueueDecoderTest {
 protected:
  InOrderDecoderTest() : SampleQueueDecoderTest({.options = "g=12;bf=0", .count = kCount}) {}
};

TEST_F(InOrderDecoderTest, FramesUpToWhatIsHurriedToMayBeLeftOutAsTheyComeOneByOne) {
  begin();
  const Demand hurried{.now = frames(9), .ahead = true, .overdue = true, .hurryTo = frames(9)};
  for (int i = 0; i < kCount; ++i) {
    push(1);
    while (step(hurried) == Outcome::Ready) {
    }
  }
  EXPECT_EQ(decoder_.takeLate(), 9u);
}

/// The same with an HEVC stream that begins with a sync sample which others are shown before.
class LeadingPicturesDecoderTest : public SampleQueueDecoderTest {
 protected:
  LeadingPicturesDecoderTest()
      : SampleQueueDecoderTest({.codec = "libx265",
                                .options = "g=8;bf=3;crf=4;x265-params=min-keyint=8:b-adapt=0:"
                                           "radl=2:scenecut=0:log-level=none",
                                .count = kCount,
                                .size = 64}) {
    auto& samples = encoded_.samples;
    samples.erase(samples.begin(),
                  std::find_if(samples.begin() + 1, samples.end(), std::mem_fn(&Sample::sync)));
  }
};

TEST_F(LeadingPicturesDecoderTest, AFrameThatWasShownBeforeThoseThatLeadUpToItComesAgain) {
  const CMTime sync = encoded_.samples.front().presentation;
  const CMTime first =
      std::ranges::min_element(encoded_.samples, {}, &Sample::presentation)->presentation;
  ASSERT_LT(first, sync);
  push(1, true);
  begin();
  ASSERT_EQ(step({.now = first}), Outcome::Ready);
  EXPECT_EQ(picture_.frame.presentation, sync);
  EXPECT_TRUE(picture_.isStandIn);
  EXPECT_EQ(step({.now = first}), Outcome::End) << "nothing else came";
  push(kCount);
  const auto number = static_cast<int>(CMTimeConvertScale(first, kEncodedRate).value);
  EXPECT_EQ(play(number), range(number));
  EXPECT_FALSE(picture_.isStandIn);
}

}  // namespace
}  // namespace zaffo::media
