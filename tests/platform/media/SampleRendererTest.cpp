#include "platform/media/SampleRenderer.h"

#include "platform/media/RendererFixture.h"

namespace zaffo::media {
namespace {

using test::clip;

using SampleRendererTest = RendererFixture;

TEST_F(SampleRendererTest, TheFirstSampleAloneIsShownAtOnceWhenItIsToBe) {
  auto samples = samplesOf(clip("h264_30.mp4"));
  samples.resize(1);
  start(std::move(samples));
  time_.settle();
  EXPECT_EQ(shown(), 0);
  EXPECT_GE(pictureChanges_, 1);
}

TEST_F(SampleRendererTest, EveryFrameIsShownInItsPeriodWhilePlaying) {
  start(samplesOf(clip("h264_30.mp4")));
  time_.settle();
  timebase_->setRate(1);
  time_.advance(1000);
  for (int frame = 0; frame < 120; ++frame) {
    ASSERT_EQ(shown(), frame);
    time_.advance(kNanosecondsPerSecond / 60);
    ASSERT_EQ(shown(), frame) << "in the middle of its period";
    time_.advance(kNanosecondsPerSecond / 60 + 1);
  }
  EXPECT_EQ(shown(), 119) << "the last one stays";
  EXPECT_EQ(renderer_->frames()->droppedFrames(), 0u);
}

TEST_F(SampleRendererTest, EveryPausedPositionShowsTheLastFrameAtOrBeforeIt) {
  for (int frame = 0; frame < 120; ++frame) {
    const CMTime position = CMTimeMake(2 * frame + frame % 2, 60);
    start(samplesOf(clip("h264_30.mp4"), position), position);
    time_.settle();
    ASSERT_EQ(shown(), frame);
  }
}

TEST_F(SampleRendererTest, EveryPausedPositionPlaysOn) {
  for (int frame = 0; frame < 115; frame += 7) {
    const CMTime position = frameTime(frame);
    start(samplesOf(clip("h264_30.mp4"), position), position);
    time_.settle();
    timebase_->setRate(1);
    time_.advance(1000);
    for (int next = frame; next < frame + 5; ++next) {
      ASSERT_EQ(shown(), next);
      time_.advance(kNanosecondsPerSecond / 30);
    }
  }
}

}  // namespace
}  // namespace zaffo::media
