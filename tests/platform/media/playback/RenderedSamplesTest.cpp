// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/RenderedSamples.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "doubles/ManualTime.h"
#include "platform/foundation/AVError.h"
#include "platform/foundation/MakeError.h"

namespace zaffo::media {
namespace {

using Status = RendererStatus;
using Image = RenderedSamples::Image;

class RenderedSamplesTest : public testing::Test {
 protected:
  static QueuedSample sample(int frame) {
    QueuedSample queued;
    queued.sample.packet.reset(av_packet_alloc());
    queued.sample.decode = queued.sample.presentation = CMTimeMake(frame, 30);
    queued.sample.duration = CMTimeMake(1, 30);
    queued.sample.sync = frame == 0;
    return queued;
  }
  static SampleQueueDecoder::Picture picture(int frame) {
    SampleQueueDecoder::Picture picture;
    picture.frame = {std::make_shared<CVPixelBuffer>(), CMTimeMake(frame, 30), CMTimeMake(1, 30)};
    return picture;
  }
  [[nodiscard]] uint64_t generation() const { return samples_.queue().generation(); }
  [[nodiscard]] bool fail() {
    return samples_.fail(makeError(AVErrorDecodeFailed, "Broken."), generation());
  }

  ManualTime time_;
  RenderedSamples samples_{CMTimebase::create(CMClockGetHostTimeClock())};
};

TEST_F(RenderedSamplesTest, RendersFromTheFirstSampleOn) {
  EXPECT_EQ(samples_.status(), Status::Unknown);
  EXPECT_TRUE(samples_.enqueue(sample(0)).isFirst);
  EXPECT_EQ(samples_.status(), Status::Rendering);
  EXPECT_FALSE(samples_.enqueue(sample(1)).isFirst);
  static_cast<void>(samples_.flush(Image::Remove));
  EXPECT_EQ(samples_.status(), Status::Rendering) << "a flush alone does not change that";
  EXPECT_FALSE(samples_.enqueue(sample(0)).isFirst);
}

TEST_F(RenderedSamplesTest, TakesNothingAfterAFailureUntilThePictureIsRemoved) {
  static_cast<void>(samples_.enqueue(sample(0)));
  ASSERT_TRUE(fail());
  EXPECT_EQ(samples_.status(), Status::Failed);
  ASSERT_TRUE(samples_.error());
  EXPECT_FALSE(samples_.enqueue(sample(1)).isTaken);
  EXPECT_FALSE(samples_.flush(Image::Keep).recovers);
  EXPECT_EQ(samples_.status(), Status::Failed);
  EXPECT_TRUE(samples_.flush(Image::Remove).recovers);
  EXPECT_EQ(samples_.status(), Status::Unknown);
  EXPECT_FALSE(samples_.error());
  EXPECT_TRUE(samples_.enqueue(sample(0)).isTaken);
}

TEST_F(RenderedSamplesTest, NothingIsShownOfSamplesThatWereFlushed) {
  const uint64_t flushed = generation();
  ASSERT_TRUE(samples_.give(picture(0), flushed, kCMTimeZero));
  static_cast<void>(samples_.flush(Image::Remove));
  EXPECT_FALSE(samples_.frames()->hasFrame());
  EXPECT_FALSE(samples_.give(picture(1), flushed, CMTimeMake(1, 1)));
  EXPECT_FALSE(samples_.frames()->hasFrame());
}

TEST_F(RenderedSamplesTest, NoFailureIsToldOfSamplesThatWereFlushed) {
  const uint64_t flushed = generation();
  static_cast<void>(samples_.flush(Image::Keep));
  EXPECT_FALSE(samples_.fail(makeError(AVErrorDecodeFailed, "Broken."), flushed));
  EXPECT_EQ(samples_.status(), Status::Unknown);
  EXPECT_FALSE(samples_.error());
}

TEST_F(RenderedSamplesTest, APictureIsShownWhenItIsDueOrAtOnceIfItIsTo) {
  EXPECT_TRUE(samples_.give(picture(0), generation(), kCMTimeZero));
  EXPECT_FALSE(samples_.give(picture(9), generation(), kCMTimeZero)) << "not due yet";
  EXPECT_EQ(samples_.frames()->shownTime(), kCMTimeZero);
  auto urgent = picture(20);
  urgent.atOnce = true;
  EXPECT_TRUE(samples_.give(std::move(urgent), generation(), kCMTimeZero));
  EXPECT_EQ(samples_.frames()->shownTime(), CMTimeMake(20, 30));
}

TEST_F(RenderedSamplesTest, APictureThatStandsInForAnotherIsDueAtNoTime) {
  auto standIn = picture(4);
  standIn.atOnce = standIn.isStandIn = true;
  EXPECT_TRUE(samples_.give(std::move(standIn), generation(), kCMTimeZero));
  EXPECT_TRUE(samples_.frames()->hasFrame());
  EXPECT_TRUE(CMTIME_IS_INVALID(samples_.frames()->shownTime()));
}

TEST_F(RenderedSamplesTest, AFlushKeepsThePictureAloneOrNothing) {
  static_cast<void>(samples_.give(picture(0), generation(), kCMTimeZero));
  static_cast<void>(samples_.give(picture(9), generation(), kCMTimeZero));
  static_cast<void>(samples_.enqueue(sample(0)));
  EXPECT_EQ(samples_.flush(Image::Keep).held.size(), 1u);
  EXPECT_TRUE(samples_.frames()->hasFrame());
  EXPECT_EQ(samples_.frames()->queued(), 0u);
  static_cast<void>(samples_.flush(Image::Remove));
  EXPECT_FALSE(samples_.frames()->hasFrame());
}

TEST_F(RenderedSamplesTest, WhatWaitsIsForgottenOnlyForTheSamplesItIsOf) {
  static_cast<void>(samples_.give(picture(0), generation(), kCMTimeZero));
  static_cast<void>(samples_.give(picture(9), generation(), kCMTimeZero));
  samples_.dropQueued(generation() + 1);
  EXPECT_EQ(samples_.frames()->queued(), 1u);
  samples_.dropQueued(generation());
  EXPECT_EQ(samples_.frames()->queued(), 0u);
}

TEST_F(RenderedSamplesTest, UnderThreadsNoPictureOutlivesItsFlush) {
  std::atomic<bool> done{false};
  std::thread decoding([&] {
    while (!done.load()) {
      const uint64_t own = generation();
      static_cast<void>(samples_.give(picture(0), own, kCMTimeZero));
      static_cast<void>(samples_.fail(nullptr, own));
    }
  });
  for (int flush = 0; flush < 2000; ++flush) {
    static_cast<void>(samples_.enqueue(sample(0)));
    static_cast<void>(samples_.flush(Image::Remove));
  }
  done.store(true);
  decoding.join();
  const uint64_t last = generation();
  static_cast<void>(samples_.flush(Image::Remove));
  EXPECT_FALSE(samples_.give(picture(0), last, kCMTimeZero));
  EXPECT_FALSE(samples_.frames()->hasFrame());
  EXPECT_NE(samples_.status(), Status::Failed);
}

}  // namespace
}  // namespace zaffo::media
