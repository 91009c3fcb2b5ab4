// SPDX-License-Identifier: Apache-2.0

// What a renderer holds and does while it stands still, and what is left of one that is gone.

#include <malloc.h>

#include "doubles/ProcessCounts.h"
#include "doubles/Sanitizers.h"
#include "platform/media/playback/DueTime.h"
#include "platform/media/playback/RendererFixture.h"

namespace zaffo::media {
namespace {

using test::clip;

class RendererRestTest : public RendererFixture {
 protected:
  /// Nothing waits, and nothing happens however long one waits.
  void expectRest() {
    time_.advance(2 * kNanosecondsPerSecond);  // until what is not needed has been let go of
    EXPECT_FALSE(time_.hasTimer());
    const int changes = pictureChanges_;
    const int calls = calls_;
    time_.advance(100 * kNanosecondsPerSecond);
    EXPECT_EQ(pictureChanges_, changes);
    EXPECT_EQ(calls_, calls);
  }
};

TEST_F(RendererRestTest, AnEmptyOneDoesNothing) {
  expectRest();
}

TEST_F(RendererRestTest, APausedOneDoesNothing) {
  start(samplesOf(clip("h264_30.mp4")));
  time_.settle();
  expectRest();
  timebase_->setTime(frameTime(17));
  time_.settle();
  EXPECT_EQ(shown(), 17);
  expectRest();
}

TEST_F(RendererRestTest, OneThatWasPausedInTheMidstOfPlayingDoesNothing) {
  start(samplesOf(clip("long_gop.mp4")));
  timebase_->setRate(1);
  time_.advance(kNanosecondsPerSecond);
  timebase_->setRate(0);
  expectRest();
}

TEST_F(RendererRestTest, KeepsTheFirstFrameWhilePlayingAndLetsGoOfItWhenStandingElsewhere) {
  start(samplesOf(clip("h264_30.mp4")));
  time_.settle();
  const std::weak_ptr first = renderer_->frames()->bufferAtHostTime(TimeSource::now());
  timebase_->setRate(1);
  time_.advance(5 * kNanosecondsPerSecond);
  EXPECT_EQ(shown(), 119);
  EXPECT_FALSE(first.expired());
  timebase_->setRate(0);
  time_.advance(kUntilRestNanoseconds / 2);
  EXPECT_FALSE(first.expired()) << "it may be wanted again";
  time_.advance(kUntilRestNanoseconds);
  EXPECT_TRUE(first.expired());
}

TEST_F(RendererRestTest, APausedOneKeepsTheFirstFrameThatItShows) {
  start(samplesOf(clip("h264_30.mp4")));
  time_.advance(10 * kUntilRestNanoseconds);
  const auto first = renderer_->frames()->bufferAtHostTime(TimeSource::now());
  start(samplesOf(clip("h264_30.mp4")));
  time_.settle();
  const auto again = renderer_->frames()->bufferAtHostTime(TimeSource::now());
  ASSERT_TRUE(again);
  EXPECT_EQ(again->planes[0].data, first->planes[0].data);
}

TEST_F(RendererRestTest, OneThatPlayedToItsEndDoesNothingThoughTimeGoesOn) {
  start(samplesOf(clip("h264_30.mp4")));
  timebase_->setRate(1);
  time_.advance(5 * kNanosecondsPerSecond);
  EXPECT_EQ(shown(), 119);
  expectRest();
}

TEST_F(RendererRestTest, AFailedOneDoesNothing) {
  start(samplesOf(clip("no_key_frame.mp4")));
  timebase_->setRate(1);
  time_.settle();
  expectRest();
}

TEST_F(RendererRestTest, PlayingUnseenWakesOncePerThreeFrames) {
  start(samplesOf(clip("h264_30.mp4")));
  time_.settle();
  pictureChanges_ = 0;
  timebase_->setRate(1);
  time_.advance(3 * kNanosecondsPerSecond);
  EXPECT_GE(pictureChanges_, 25);
  EXPECT_LE(pictureChanges_, 35) << "90 frames";
}

TEST_F(RendererRestTest, APausedOneHoldsOneFrameAndItsSamples) {
  if (test::kHasShadowMemory) GTEST_SKIP() << "a sanitizer holds what was let go of";
  constexpr int kRenderers = 20;
  const auto make = [&] {
    auto renderer = SampleRenderer::create({[] {}, [] {}});
    renderer->setTimebase(timebase_);
    std::size_t bytes = 192 * 108 * 3 / 2;
    auto samples = samplesOf(clip("h264_30.mp4"));
    samples.resize(60);
    samples.front().displayImmediately = true;
    for (QueuedSample& queued : samples) {
      bytes += static_cast<std::size_t>(queued.sample.packet->size);
      renderer->enqueue(std::move(queued));
    }
    time_.advance(kNanosecondsPerSecond);
    EXPECT_TRUE(renderer->frames()->hasFrame());
    return std::pair(renderer, bytes);
  };
  std::vector<std::pair<std::shared_ptr<SampleRenderer>, std::size_t>> renderers;
  renderers.push_back(make());  // what the first one brings along for all
  const std::size_t before = mallinfo2().uordblks;
  for (int i = 0; i < kRenderers; ++i) renderers.push_back(make());
  const std::size_t each = (mallinfo2().uordblks - before) / kRenderers;
  // What stands around the samples and the frame weighs against clips as small as these.
  constexpr std::size_t kAround = 60 * 512 + 64 * 1024;
  EXPECT_LT(each, renderers.front().second * 5 / 4 + kAround);
  for (auto& [renderer, bytes] : renderers) renderer->close();
  time_.settle();
}

TEST_F(RendererRestTest, IsGoneFromEveryStateWithoutATimerAThreadOrACall) {
  const std::size_t threads = [this] {
    start(samplesOf(clip("h264_30.mp4")));
    time_.settle();
    return threadCountBesideQueues();
  }();
  const auto paused = [this] { start(samplesOf(clip("h264_30.mp4"))); };
  const auto playing = [this, paused] {
    paused();
    timebase_->setRate(1);
    time_.advance(kNanosecondsPerSecond / 2);
  };
  const auto ended = [this, paused] {
    paused();
    timebase_->setRate(1);
    time_.advance(6 * kNanosecondsPerSecond);
  };
  const auto failed = [this] {
    start(samplesOf(clip("refused_codec.mp4")));
    time_.settle();
  };
  const auto backwards = [this, playing] {
    playing();
    static_cast<void>(shown());
    timebase_->setRate(-1);
    time_.advance(kNanosecondsPerSecond / 10);
  };
  const std::vector<std::function<void()>> states{[] {}, paused, playing, ended, failed, backwards};
  for (const auto& reach : states) {
    reach();
    const std::weak_ptr<SampleRenderer> gone = renderer_;
    const std::weak_ptr<FrameStore> frames = renderer_->frames();
    renderer_->close();
    renderer_.reset();
    time_.settle();
    const int calls = calls_, changes = pictureChanges_, statuses = statusChanges_;
    time_.advance(kNanosecondsPerSecond);
    EXPECT_TRUE(gone.expired());
    EXPECT_TRUE(frames.expired());
    EXPECT_FALSE(time_.hasTimer());
    EXPECT_EQ(calls_, calls);
    EXPECT_EQ(pictureChanges_, changes);
    EXPECT_EQ(statusChanges_, statuses);
    timebase_->setRate(0);
    timebase_->setTime(kCMTimeZero);
    makeRenderer();
  }
  EXPECT_EQ(countOfThreadsThatStay(threadCountBesideQueues, threads), threads);
}

}  // namespace
}  // namespace zaffo::media
