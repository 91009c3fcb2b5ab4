// SPDX-License-Identifier: Apache-2.0

// Room for samples, and who is called when there is some.

#include "doubles/HeldQueue.h"
#include "platform/media/playback/RendererFixture.h"

namespace zaffo::media {
namespace {

using test::clip;

class RendererSupplyTest : public RendererFixture {
 protected:
  /// A clip several times over, its times running on.
  [[nodiscard]] std::vector<QueuedSample> repeated(const std::string& path, int times,
                                                   CMTime duration) {
    std::vector<QueuedSample> all;
    CMTime offset = kCMTimeZero;
    for (int i = 0; i < times; ++i, offset = offset + duration) {
      auto samples = samplesOf(path);
      samples.front().sample.isDiscontinuity = true;
      for (QueuedSample& queued : samples) {
        queued.sample.presentation = queued.sample.presentation + offset;
        queued.sample.decode = queued.sample.decode + offset;
        all.push_back(std::move(queued));
      }
    }
    return all;
  }
};

TEST_F(RendererSupplyTest, FourSecondsFitWhilePaused) {
  start(repeated(clip("no_b_frames.mp4"), 4, CMTimeMake(2, 1)));
  time_.settle();
  EXPECT_EQ(calls_, 1);
  EXPECT_FALSE(renderer_->isReadyForMore());
  EXPECT_EQ(left(), 4u * 60 - 121) << "frames 0 to 120 are within four seconds";
  time_.advance(10 * kNanosecondsPerSecond);
  EXPECT_EQ(calls_, 1) << "a paused client is not called again";
}

TEST_F(RendererSupplyTest, PlayingAsksOnceASecond) {
  start(repeated(clip("no_b_frames.mp4"), 12, CMTimeMake(2, 1)));
  time_.settle();
  timebase_->setRate(1);
  time_.advance(15 * kNanosecondsPerSecond);
  EXPECT_GE(calls_, 15);
  EXPECT_LE(calls_, 17);
  EXPECT_EQ(shown(), 15 * 30 % 60);
}

TEST_F(RendererSupplyTest, AFastOneAsksAsOftenAsItNeeds) {
  start(repeated(clip("no_b_frames.mp4"), 12, CMTimeMake(2, 1)));
  time_.settle();
  timebase_->setRate(4);
  for (int i = 1; i <= 5; ++i) {
    time_.advance(kNanosecondsPerSecond);
    EXPECT_EQ(shown(), 4 * i * 30 % 60);
  }
}

TEST_F(RendererSupplyTest, ManyBytesFillItTooButTwoSecondsOfAnOrdinaryClipFit) {
  const auto model = samplesOf(clip("no_b_frames.mp4"));
  const auto enqueueUntilFull = [&](int bytes) {
    renderer_->flush(SampleRenderer::Image::Remove);
    int count = 0;
    for (; renderer_->isReadyForMore() && count < 1000; ++count) {
      QueuedSample queued;
      queued.format = model.front().format;
      queued.sample.packet.reset(av_packet_alloc());
      EXPECT_EQ(av_new_packet(queued.sample.packet.get(), bytes), 0);
      std::fill_n(queued.sample.packet->data, bytes, uint8_t{0});
      queued.sample.presentation = queued.sample.decode = frameTime(count);
      renderer_->enqueue(std::move(queued));
    }
    return count;
  };
  timebase_->setTime(frameTime(-1));  // nothing is due: nothing is decoded
  EXPECT_EQ(enqueueUntilFull(1 << 20), 16);
  // 50 Mbit/s at 30 frames a second.
  EXPECT_GE(enqueueUntilFull(50'000'000 / 8 / 30), 60);
}

TEST_F(RendererSupplyTest, ASeekMakesRoomAgain) {
  start(repeated(clip("no_b_frames.mp4"), 4, CMTimeMake(2, 1)));
  time_.settle();
  ASSERT_FALSE(renderer_->isReadyForMore());
  renderer_->flush(SampleRenderer::Image::Keep);
  EXPECT_TRUE(renderer_->isReadyForMore());
  time_.settle();
  EXPECT_EQ(calls_, 2) << "the client was told that there is none";
}

TEST_F(RendererSupplyTest, ARequestIsCalledAtOnceWhenThereIsRoomAndOnlyOnce) {
  const auto held = std::make_shared<HeldQueue>();
  renderer_->requestWhenReady(held, [this] { ++calls_; });
  time_.settle();
  EXPECT_EQ(calls_, 0) << "on the given queue, not inside the call";
  held->runAll();
  EXPECT_EQ(calls_, 1);
  time_.advance(10 * kNanosecondsPerSecond);
  held->runAll();
  EXPECT_EQ(calls_, 1) << "one that brings nothing is not asked over and over";
}

TEST_F(RendererSupplyTest, ARequestWithoutRoomWaitsForIt) {
  start(repeated(clip("no_b_frames.mp4"), 4, CMTimeMake(2, 1)));
  time_.settle();
  ASSERT_FALSE(renderer_->isReadyForMore());
  renderer_->stopRequesting();
  int calls = 0;
  renderer_->requestWhenReady(queue_, [&calls] { ++calls; });
  time_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(calls, 0);
  timebase_->setRate(1);
  time_.advance(2 * kNanosecondsPerSecond);
  EXPECT_EQ(calls, 1);
}

TEST_F(RendererSupplyTest, NoCallBeginsAfterAStop) {
  const auto held = std::make_shared<HeldQueue>();
  int calls = 0;
  renderer_->requestWhenReady(held, [&calls] { ++calls; });
  time_.settle();
  EXPECT_EQ(held->waiting(), 1u);
  renderer_->stopRequesting();
  held->runAll();
  EXPECT_EQ(calls, 0);
  renderer_->stopRequesting();
}

TEST_F(RendererSupplyTest, ANewRequestReplacesTheOneBefore) {
  const auto held = std::make_shared<HeldQueue>();
  int first = 0, second = 0;
  renderer_->requestWhenReady(held, [&first] { ++first; });
  renderer_->requestWhenReady(held, [&second] { ++second; });
  time_.settle();
  held->runAll();
  EXPECT_EQ(first, 0);
  EXPECT_EQ(second, 1);
}

TEST_F(RendererSupplyTest, ABlockMayStopRequestAnewFlushAndRelease) {
  const auto held = std::make_shared<HeldQueue>();
  int second = 0;
  renderer_->requestWhenReady(held, [this, held, &second] {
    renderer_->stopRequesting();
    renderer_->flush(SampleRenderer::Image::Remove);
    renderer_->requestWhenReady(held, [this, &second] {
      ++second;
      renderer_->close();
    });
    EXPECT_EQ(second, 0) << "from its queue, not inside the call";
  });
  time_.settle();
  held->runAll();
  time_.settle();
  held->runAll();
  EXPECT_EQ(second, 1);
  held->runAll();
  EXPECT_EQ(second, 1);
}

TEST_F(RendererSupplyTest, WhatABlockHoldsIsLetGoOfByAStopAndByTheEnd) {
  const auto held = std::make_shared<HeldQueue>();
  for (const bool ends : {false, true}) {
    auto token = std::make_shared<int>(0);
    const std::weak_ptr<int> gone = token;
    renderer_->requestWhenReady(held, [token = std::move(token)] { ++*token; });
    held->runAll();
    EXPECT_FALSE(gone.expired());
    ends ? renderer_->close() : renderer_->stopRequesting();
    time_.settle();
    EXPECT_TRUE(gone.expired());
  }
}

}  // namespace
}  // namespace zaffo::media
