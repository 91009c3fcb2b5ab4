// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/AVSampleBufferDisplayLayer.h"

#include <atomic>
#include <thread>

#include "platform/avfoundation/DisplayLayerFixture.h"
#include "platform/foundation/AVError.h"

namespace zaffo {
namespace {

using test::clip;
using Status = AVQueuedSampleBufferRenderingStatus;

class AVSampleBufferDisplayLayerTest : public DisplayLayerFixture {};

TEST_F(AVSampleBufferDisplayLayerTest, IsEmptyUnknownAndKeepsTheAspectAtFirst) {
  EXPECT_EQ(layer_->videoGravity(), AVLayerVideoGravityResizeAspect);
  EXPECT_EQ(layer_->status(), Status::Unknown);
  EXPECT_FALSE(layer_->error());
  EXPECT_FALSE(layer_->isReadyForDisplay());
  EXPECT_TRUE(layer_->isReadyForMoreMediaData());
  EXPECT_FALSE(draw());
  EXPECT_EQ(layer_->presentedFrames(), 0u);
  EXPECT_EQ(layer_->droppedFrames(), 0u);
  EXPECT_EQ(layer_->firstPresentedHostTime(), 0);
  EXPECT_FALSE(AVSampleBufferDisplayLayer::create()->controlTimebase());
  EXPECT_EQ(layer_->controlTimebase(), timebase_);
}

TEST_F(AVSampleBufferDisplayLayerTest, ShowsTheFirstSampleRightAfterItWasEnqueued) {
  start(clip("h264_30.mp4"));
  time_.settle();
  EXPECT_EQ(shown(), 0);
  EXPECT_TRUE(layer_->isReadyForDisplay());
  EXPECT_GT(requests_, 0) << "asks to be drawn";
}

TEST_F(AVSampleBufferDisplayLayerTest, FitsFillsOrStretchesThePictureByItsGravity) {
  start(clip("h264_30.mp4"));  // 192 x 108
  time_.settle();
  ASSERT_TRUE(draw());
  EXPECT_NEAR(draw()->destination.size.height, 225, 1e-9);
  EXPECT_NEAR(draw()->destination.origin.y, 87.5, 1e-9);
  requests_ = 0;
  layer_->setVideoGravity(AVLayerVideoGravityResize);
  EXPECT_EQ(draw()->destination, CGRectMake(0, 0, 400, 400));
  layer_->setVideoGravity(AVLayerVideoGravityResizeAspectFill);
  EXPECT_NEAR(draw()->destination.size.width, 400 * 192 / 108.0, 1e-9);
  EXPECT_EQ(requests_, 2);
}

TEST_F(AVSampleBufferDisplayLayerTest, TurnsThePictureUprightByThePreferredTransform) {
  start(clip("rotated_90.mp4"));
  time_.settle();
  ASSERT_TRUE(draw());
  EXPECT_EQ(draw()->quarterTurns, 0);
  layer_->setPreferredTransform({0, 1, -1, 0, 256, 0});
  EXPECT_EQ(draw()->quarterTurns, 1);
  EXPECT_GT(draw()->destination.size.width, draw()->destination.size.height);
  layer_->setPreferredTransform({-1, 0, 0, 1, 144, 0});
  EXPECT_TRUE(draw()->mirrored);
}

TEST_F(AVSampleBufferDisplayLayerTest, IsMadeAndLaidOutFromAnyThreadWhileItIsDrawn) {
  start(clip("h264_30.mp4"));
  time_.settle();
  ASSERT_TRUE(draw());
  requests_ = 0;
  std::atomic<bool> done{false};
  std::thread other([&] {
    EXPECT_TRUE(AVSampleBufferDisplayLayer::create());
    EXPECT_TRUE(AVPlayerLayer::create());
    for (int i = 0; i < 1000; ++i) {
      layer_->setVideoGravity(i % 2 == 0 ? AVLayerVideoGravityResize
                                         : AVLayerVideoGravityResizeAspectFill);
      layer_->setPreferredTransform({0, 1, -1, 0, static_cast<double>(i), 0});
      EXPECT_LE(layer_->presentedFrames(), 1u);
      EXPECT_GE(layer_->firstPresentedHostTime(), 0);
    }
    layer_->setVideoGravity(AVLayerVideoGravityResize);
    done = true;
  });
  while (!done) {
    const auto picture = draw();
    if (!picture) break;
    layer_->didPresent(picture->buffer, TimeSource::now());
  }
  other.join();
  time_.settle();
  EXPECT_GT(requests_, 0) << "asks to be drawn anew, on the main thread";
  EXPECT_EQ(layer_->videoGravity(), AVLayerVideoGravityResize);
  EXPECT_EQ(draw()->destination, CGRectMake(0, 0, 400, 400));
  EXPECT_EQ(draw()->quarterTurns, 1);
}

TEST_F(AVSampleBufferDisplayLayerTest, AsksForADrawOncePerDrawWhilePlaying) {
  start(clip("h264_30.mp4"));
  time_.settle();
  ASSERT_TRUE(draw());
  timebase_->setRate(1);
  for (int frame = 0; frame < 5; ++frame) {
    requests_ = 0;
    time_.advance(100 * kNanosecondsPerMillisecond);
    EXPECT_EQ(requests_, 1);
    ASSERT_TRUE(draw());
  }
}

TEST_F(AVSampleBufferDisplayLayerTest, CountsWhatWasPutOnScreen) {
  start(clip("h264_30.mp4"));
  time_.settle();
  const auto picture = draw();
  const int64_t now = TimeSource::now();
  layer_->didPresent(picture->buffer, now);
  layer_->didPresent(picture->buffer, now + 5);
  EXPECT_EQ(layer_->presentedFrames(), 1u) << "the same picture again is no new frame";
  EXPECT_EQ(layer_->firstPresentedHostTime(), now);
}

TEST_F(AVSampleBufferDisplayLayerTest, CountsFramesThatBecameDueAndWereNotDrawn) {
  start(clip("h264_30.mp4"));
  time_.settle();
  ASSERT_TRUE(draw());
  timebase_->setRate(1);
  time_.advance(1000);
  for (int i = 0; i < 4; ++i) {
    time_.advance(kNanosecondsPerSecond / 10);
    ASSERT_TRUE(draw());
  }
  EXPECT_EQ(layer_->droppedFrames(), 8u) << "two of three";
}

TEST_F(AVSampleBufferDisplayLayerTest, FlushingKeepsThePictureAndRemovingTheImageDoesNot) {
  start(clip("h264_30.mp4"));
  time_.settle();
  layer_->flush();
  EXPECT_EQ(shown(), 0);
  layer_->flushAndRemoveImage();
  EXPECT_FALSE(layer_->isReadyForDisplay());
  EXPECT_FALSE(draw());
  time_.settle();
  EXPECT_FALSE(draw());
}

TEST_F(AVSampleBufferDisplayLayerTest, CountsHowOftenThePictureWasTakenAwayAndNoOtherFlush) {
  EXPECT_EQ(layer_->removedImages(), 0U);
  layer_->flush();
  EXPECT_EQ(layer_->removedImages(), 0U);
  layer_->flushAndRemoveImage();
  EXPECT_EQ(layer_->removedImages(), 1U);
  layer_->flush();
  layer_->setControlTimebase(nullptr);
  EXPECT_EQ(layer_->removedImages(), 1U);
  layer_->flushAndRemoveImage();
  EXPECT_EQ(layer_->removedImages(), 2U) << "with nothing to take away, too";
}

TEST_F(AVSampleBufferDisplayLayerTest, TellsTheObserversOfEachChangeOfItsStatus) {
  std::vector<Status> seen;
  auto observation = layer_->observeStatus([&] { seen.push_back(layer_->status()); });
  start(clip("h264_30.mp4"));
  time_.settle();
  EXPECT_EQ(seen, (std::vector{Status::Rendering}));
  layer_->flushAndRemoveImage();
  start(clip("no_key_frame.mp4"));
  time_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(seen, (std::vector{Status::Rendering, Status::Failed}));
  ASSERT_TRUE(layer_->error());
  EXPECT_EQ(layer_->error()->domain(), AVFoundationErrorDomain);
  layer_->flushAndRemoveImage();
  EXPECT_EQ(seen.size(), 3u);
  EXPECT_EQ(seen.back(), Status::Unknown);
  EXPECT_FALSE(layer_->error());
  observation.invalidate();
  start(clip("h264_30.mp4"));
  time_.settle();
  EXPECT_EQ(shown(), 0) << "it can be used again";
  EXPECT_EQ(seen.size(), 3u);
}

TEST_F(AVSampleBufferDisplayLayerTest, AFailureIsToldOnceToWhoeverObservesInTheNextBlockOfMain) {
  std::vector<Status> seen;
  KeyValueObservation observation;
  start(clip("no_key_frame.mp4"));
  dispatch_async(dispatch_get_main_queue(), [&] {
    observation = layer_->observeStatus([&] { seen.push_back(layer_->status()); });
  });
  dispatch_wait_until_idle();  // by now the layer knows
  EXPECT_EQ(layer_->status(), Status::Unknown);
  EXPECT_FALSE(layer_->error());
  time_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(seen, (std::vector{Status::Rendering, Status::Failed}));
  EXPECT_TRUE(layer_->error());
}

TEST_F(AVSampleBufferDisplayLayerTest, PassesOverMarkersAndSamplesOfNobodyKnowsWhat) {
  class OtherBytes final : public CMBlockBuffer {
   public:
    [[nodiscard]] std::span<const uint8_t> bytes() const override { return {}; }
  };
  layer_->enqueueSampleBuffer(nullptr);
  layer_->enqueueSampleBuffer(CMSampleBuffer::create(nullptr, nullptr, {}));
  const auto format = buffers(clip("h264_30.mp4")).front()->formatDescription();
  layer_->enqueueSampleBuffer(
      CMSampleBuffer::create(std::make_shared<const OtherBytes>(), format, {}));
  time_.settle();
  EXPECT_EQ(layer_->status(), Status::Unknown);
}

TEST_F(AVSampleBufferDisplayLayerTest, IsShownByTheHostClockWithoutATimebase) {
  layer_->setControlTimebase(nullptr);
  EXPECT_FALSE(layer_->controlTimebase());
  const CMTime now = CMTimeMake(TimeSource::now(), 1'000'000'000);
  for (const auto& sample : buffers(clip("no_b_frames.mp4"))) {
    sample->setOutputPresentationTimeStamp(sample->presentationTimeStamp() + now);
    layer_->enqueueSampleBuffer(sample);
  }
  time_.advance(kNanosecondsPerSecond / 2 + 1000);
  EXPECT_EQ(shown(), 15);
}

TEST_F(AVSampleBufferDisplayLayerTest, IsLetGoOfWithoutWaitingAndWithoutAFurtherCall) {
  for (const bool plays : {false, true}) {
    start(clip("h264_30.mp4"));
    if (plays) timebase_->setRate(1);
    time_.settle();
    int told = 0;
    auto observation = layer_->observeStatus([&] { ++told; });
    layer_->removeFromSuperlayer();
    const std::weak_ptr<CALayer> gone = layer_;
    layer_.reset();
    EXPECT_TRUE(gone.expired());
    const int calls = *calls_;
    time_.advance(kNanosecondsPerSecond);
    EXPECT_EQ(*calls_, calls);
    EXPECT_EQ(told, 0);
    EXPECT_FALSE(time_.hasTimer());
    makeLayer();
  }
}

}  // namespace
}  // namespace zaffo
