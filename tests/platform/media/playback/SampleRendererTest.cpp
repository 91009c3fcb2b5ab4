// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/SampleRenderer.h"

#include <functional>

#include "doubles/HeldQueue.h"
#include "platform/media/Encoding.h"
#include "platform/media/playback/RendererFixture.h"

namespace zaffo::media {
namespace {

using test::clip;

class SampleRendererTest : public RendererFixture {
 protected:
  /// Goes through frames [first, end) while playing at `rate`, looking twice in the period of each.
  void expectEveryFrame(int first, int end, double rate = 1) {
    const auto period = static_cast<int64_t>(kNanosecondsPerSecond / 30 / rate) + 1;
    for (int frame = first; frame < end; ++frame) {
      ASSERT_EQ(shown(), frame);
      time_.advance(period / 2);
      ASSERT_EQ(shown(), frame) << "in the middle of its period";
      time_.advance(period - period / 2);
    }
  }
  /// Leaves out what is not needed for the frames before `frame`, and hides the others.
  static void cut(std::vector<QueuedSample>& samples, int frame) {
    for (QueuedSample& queued : samples) {
      queued.sample.decodeOnly = queued.sample.presentation >= frameTime(frame);
    }
    while (samples.back().sample.decodeOnly) samples.pop_back();
  }
  /// Moves into the period of the frame that begins now.
  void enterPeriod() { time_.advance(2000); }
};

// The picture on show.

TEST_F(SampleRendererTest, TheFirstSampleAloneIsShownAtOnceWhenItIsToBe) {
  auto samples = samplesOf(clip("h264_30.mp4"));
  samples.resize(1);
  start(std::move(samples));
  time_.settle();
  EXPECT_EQ(shown(), 0);
  EXPECT_GE(pictureChanges_, 1);
}

TEST_F(SampleRendererTest, TheFirstSampleIsShownAtOnceEvenWhenItsTimeIsYetToCome) {
  start(samplesOf(clip("late_video.mp4")));
  time_.settle();
  EXPECT_EQ(shown(), 0);
  timebase_->setRate(1);
  time_.advance(kNanosecondsPerSecond / 2 + 2000);
  expectEveryFrame(0, 10);
}

TEST_F(SampleRendererTest, EveryFrameIsShownInItsPeriodWhilePlaying) {
  start(samplesOf(clip("h264_30.mp4")));
  time_.settle();
  timebase_->setRate(1);
  enterPeriod();
  expectEveryFrame(0, 120);
  EXPECT_EQ(shown(), 119) << "the last one stays";
  EXPECT_EQ(renderer_->frames()->droppedFrames(), 0u);
}

TEST_F(SampleRendererTest, EveryFrameIsShownWhenPlayingBeginsBeforeTheSamplesCome) {
  auto samples = samplesOf(clip("h264_30.mp4"));
  std::vector<QueuedSample> first(std::make_move_iterator(samples.begin()),
                                  std::make_move_iterator(samples.begin() + 1));
  samples.erase(samples.begin());
  start(std::move(first));
  timebase_->setRate(1);
  feed(std::move(samples));
  enterPeriod();
  expectEveryFrame(0, 120);
}

TEST_F(SampleRendererTest, EveryPausedPositionShowsTheLastFrameAtOrBeforeIt) {
  for (int frame = 0; frame < 120; ++frame) {
    const CMTime position = CMTimeMake(2 * frame + frame % 2, 60);
    start(samplesOf(clip("h264_30.mp4"), position), position);
    time_.settle();
    ASSERT_EQ(shown(), frame);
  }
}

TEST_F(SampleRendererTest, ASeekConvertsOnlyTheFirstPictureAndTheOneAtThePosition) {
  start(samplesOf(clip("long_gop.mp4")), frameTime(80));
  time_.settle();
  EXPECT_EQ(shown(), 80);
  EXPECT_LE(pictureChanges_, 3) << "the image removed, the first sample, the frame sought";
}

TEST_F(SampleRendererTest, SamplesBeforeThePositionThatAreNotToBeShownNeverAre) {
  auto samples = samplesOf(clip("long_gop.mp4"));
  for (QueuedSample& queued : samples) {
    queued.sample.decodeOnly = queued.sample.presentation < frameTime(80);
  }
  start(std::move(samples), frameTime(80));
  time_.settle();
  EXPECT_EQ(shown(), 80);
  EXPECT_EQ(pictureChanges_, 2) << "the image removed, and this picture";
}

TEST_F(SampleRendererTest, ThePositionJustAfterAFramesTimeShowsThatFrameHoweverLateTheSamplesCome) {
  for (int frame = 40; frame < 56; ++frame) {
    auto samples = samplesOf(clip("h264_30.mp4"), frameTime(frame));
    for (QueuedSample& queued : samples) {
      queued.sample.decodeOnly = queued.sample.presentation < frameTime(frame);
    }
    timebase_->setTime(CMTimeMake(3000 * frame + 1, 90000));
    renderer_->flush(SampleRenderer::Image::Remove);
    samples.front().sample.isDiscontinuity = true;
    samples.front().displayImmediately = true;
    const auto busy = std::make_shared<HeldQueue>();
    renderer_->requestWhenReady(busy, [] {});  // as long as it waits more samples may come
    for (QueuedSample& queued : samples) {
      renderer_->enqueue(std::move(queued));
      dispatch_wait_until_idle();
    }
    EXPECT_EQ(shown(), frame);
    renderer_->stopRequesting();
    dispatch_wait_until_idle();
    busy->runAll();  // a call that waits there holds the queue
  }
}

TEST_F(SampleRendererTest, WhereNoFrameIsDueTheFirstOneThatMayBeShownIs) {
  auto samples = samplesOf(clip("h264_30.mp4"));
  for (QueuedSample& queued : samples) {
    queued.sample.decodeOnly = queued.sample.presentation < frameTime(7);
  }
  start(std::move(samples));
  time_.settle();
  EXPECT_EQ(shown(), 7);
}

TEST_F(SampleRendererTest, WhatStandsInForAFrameGivesWayToItWhenItsSampleComes) {
  for (const double rate : {0.0, 1.0}) {
    auto samples = samplesOf(clip("h264_30.mp4"));
    samples.front().sample.decodeOnly = true;
    ASSERT_GT(samples[1].sample.presentation, frameTime(2)) << "decoded before those it follows";
    std::vector<QueuedSample> rest(std::make_move_iterator(samples.begin() + 2),
                                   std::make_move_iterator(samples.end()));
    samples.resize(2);
    start(std::move(samples), frameTime(1));
    time_.settle();
    EXPECT_EQ(shown(), 4) << "the only one that can be";
    timebase_->setRate(rate);
    feed(std::move(rest));
    enterPeriod();
    EXPECT_EQ(shown(), 1) << "at rate " << rate;
    timebase_->setRate(1);
    enterPeriod();
    expectEveryFrame(1, 12);
  }
}

TEST_F(SampleRendererTest, EveryPausedPositionPlaysOn) {
  for (int frame = 0; frame < 115; frame += 3) {
    const CMTime position = frameTime(frame);
    start(samplesOf(clip("h264_30.mp4"), position), position);
    time_.settle();
    timebase_->setRate(1);
    enterPeriod();
    expectEveryFrame(frame, frame + 5);
  }
}

TEST_F(SampleRendererTest, EveryPausedPositionPlaysOnInAGroupTooLongToDecodeAgain) {
  const std::string path = clip("long_gop.mp4");
  for (int frame = 0; frame < 85; frame += 12) {
    start(samplesOf(path), frameTime(frame));
    time_.settle();
    ASSERT_EQ(shown(), frame);
    timebase_->setRate(1);
    enterPeriod();
    expectEveryFrame(frame, frame + 5);
  }
}

TEST_F(SampleRendererTest, NoFrameIsLostOrRepeatedByPausesAnywhere) {
  start(samplesOf(clip("h264_30.mp4")));
  time_.settle();
  enterPeriod();
  for (int frame = 0; frame < 120; ++frame) {
    timebase_->setRate(1);
    enterPeriod();
    ASSERT_EQ(shown(), frame);
    timebase_->setRate(0);
    time_.advance(kNanosecondsPerSecond);
    ASSERT_EQ(shown(), frame);
    timebase_->setTime(frameTime(frame + 1) - CMTimeMake(1, 1'000'000));
    time_.settle();
    ASSERT_EQ(shown(), frame);
    timebase_->setTime(frameTime(frame + 1));
    time_.settle();
    ASSERT_EQ(shown(), std::min(frame + 1, 119));
  }
}

TEST_F(SampleRendererTest, RatesOtherThanOneAreFollowed) {
  start(samplesOf(clip("h264_60.mp4")));
  time_.settle();
  int64_t mediaNanoseconds = 0;
  for (const double rate : {0.25, 1.0, 3.0, 0.5, 8.0, 0.1, 2.0, 1e-3}) {
    timebase_->setRate(rate);
    for (int i = 0; i < 6; ++i) {
      time_.advance(20 * kNanosecondsPerMillisecond + 3);
      mediaNanoseconds += static_cast<int64_t>(rate * (20e6 + 3));
      const auto due = static_cast<int>(CMTimeGetSeconds(timebase_->time()) * 60);
      ASSERT_EQ(shown(), std::min(due, 119)) << rate;
    }
  }
  EXPECT_NEAR(CMTimeGetSeconds(timebase_->time()), static_cast<double>(mediaNanoseconds) * 1e-9,
              1e-6);
}

TEST_F(SampleRendererTest, AJumpForwardShowsTheFrameThere) {
  start(samplesOf(clip("h264_30.mp4")));
  time_.settle();
  for (const int frame : {3, 31, 33, 95, 118}) {
    timebase_->setTime(frameTime(frame));
    time_.settle();
    EXPECT_EQ(shown(), frame);
  }
}

TEST_F(SampleRendererTest, AJumpBackShowsTheFrameThereAsFarAsItsSamplesAreHeld) {
  start(samplesOf(clip("h264_30.mp4")));
  timebase_->setTime(frameTime(50));
  time_.settle();
  ASSERT_EQ(shown(), 50);
  for (const int frame : {49, 40, 45, 30}) {
    timebase_->setTime(frameTime(frame));
    time_.settle();
    EXPECT_EQ(shown(), frame);
  }
  timebase_->setTime(frameTime(12));
  time_.settle();
  EXPECT_EQ(shown(), 30) << "those before the key frame are gone";
  timebase_->setTime(frameTime(31));
  time_.settle();
  EXPECT_EQ(shown(), 31);
}

TEST_F(SampleRendererTest, NegativeRatesShowWhatIsHeldAndNeverStall) {
  start(samplesOf(clip("h264_30.mp4")));
  timebase_->setTime(frameTime(45));
  time_.settle();
  ASSERT_EQ(shown(), 45);
  timebase_->setRate(-1);
  time_.advance(kNanosecondsPerMillisecond);
  for (int frame = 44; frame >= 30; --frame) {
    ASSERT_EQ(shown(), frame);
    time_.advance(kNanosecondsPerSecond / 30);
  }
  time_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(shown(), 30);
  EXPECT_FALSE(time_.hasTimer()) << "nothing more can come";
  timebase_->setTime(frameTime(60));
  timebase_->setRate(1);
  enterPeriod();
  expectEveryFrame(60, 70);
}

TEST_F(SampleRendererTest, TheLastFramesComeWithoutFurtherSamples) {
  for (const int frame : {116, 117, 118, 119}) {
    start(samplesOf(clip("h264_30.mp4"), frameTime(frame)), frameTime(frame));
    time_.settle();
    EXPECT_EQ(shown(), frame);
  }
  timebase_->setTime(CMTimeMake(100, 1));
  time_.settle();
  EXPECT_EQ(shown(), 119);
}

TEST_F(SampleRendererTest, SamplesThatNobodyAsksForAreAllShown) {
  timebase_->setRate(1);
  for (QueuedSample& queued : samplesOf(clip("h264_30.mp4"))) renderer_->enqueue(std::move(queued));
  enterPeriod();
  expectEveryFrame(0, 120);
}

TEST_F(SampleRendererTest, SamplesThatComeJustInTimeAreAllShown) {
  auto samples = samplesOf(clip("no_b_frames.mp4"));
  timebase_->setTime(frameTime(-2));
  timebase_->setRate(1);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    renderer_->enqueue(std::move(samples[i]));
    time_.advance(kNanosecondsPerSecond / 30);
    if (i >= 2) {
      ASSERT_EQ(shown(), static_cast<int>(i) - 2) << i;
    }
  }
}

TEST_F(SampleRendererTest, SamplesThatComeAfterTheLastWasShownGoOn) {
  auto samples = samplesOf(clip("h264_30.mp4"));
  std::vector<QueuedSample> rest(std::make_move_iterator(samples.begin() + 40),
                                 std::make_move_iterator(samples.end()));
  samples.resize(40);
  start(std::move(samples));
  timebase_->setRate(1);
  time_.advance(2 * kNanosecondsPerSecond);
  const std::optional<int> last = shown();
  ASSERT_TRUE(last);
  EXPECT_GE(*last, 36);
  feed(std::move(rest));
  time_.settle();
  EXPECT_EQ(shown(), 60) << "the one that is due, though it came late";
  enterPeriod();
  expectEveryFrame(60, 120);
}

TEST_F(SampleRendererTest, AnOpenGroupIsShownWhole) {
  start(samplesOf(clip("open_gop.mp4")));
  time_.settle();
  timebase_->setRate(1);
  enterPeriod();
  expectEveryFrame(0, 60);
}

TEST_F(SampleRendererTest, PicturesThatLeadUpToTheFirstSyncSampleAreShownBeforeIt) {
  constexpr int kCount = 24;
  Encoded encoded = encodePictures({.codec = "libx265",
                                    .options = "g=8;bf=3;crf=4;x265-params=min-keyint=8:b-adapt=0:"
                                               "radl=2:scenecut=0:log-level=none",
                                    .count = kCount,
                                    .size = 64});
  auto& decoded = encoded.samples;
  decoded.erase(decoded.begin(),
                std::find_if(decoded.begin() + 1, decoded.end(), std::mem_fn(&Sample::sync)));
  const CMTime first = std::ranges::min_element(decoded, {}, &Sample::presentation)->presentation;
  ASSERT_LT(first, decoded.front().presentation);
  const auto format = makeFormatDescription(*encoded.parameters);
  std::vector<QueuedSample> samples;
  for (Sample& sample : decoded) samples.push_back({std::move(sample), format, false});
  start(std::move(samples), first);
  time_.settle();
  timebase_->setRate(1);
  enterPeriod();
  for (auto number = static_cast<int>(first.value); number < kCount; ++number) {
    EXPECT_EQ(pictureNumber(renderer_->frames()->bufferAtHostTime(TimeSource::now())), number);
    time_.advance(kNanosecondsPerSecond / 30 + 1);
  }
}

// Runs that do not continue each other.

TEST_F(SampleRendererTest, FramesBeforeAResetAreAllShownAtTheirTimes) {
  // Frames 0 to 44 of one clip, then those of another, as a composition's segments follow.
  const auto first = clip("h264_30.mp4");
  auto samples = samplesOf(first);
  cut(samples, 45);
  auto next = samplesOf(first);
  next.front().sample.isDiscontinuity = true;
  for (QueuedSample& queued : next) {
    queued.sample.presentation = queued.sample.presentation + frameTime(45);
    queued.sample.decode = queued.sample.decode + frameTime(45);
    samples.push_back(std::move(queued));
  }
  start(std::move(samples));
  time_.settle();
  timebase_->setRate(1);
  enterPeriod();
  expectEveryFrame(0, 45);
  expectEveryFrame(0, 75);
}

TEST_F(SampleRendererTest, AnotherFormatIsAnotherRun) {
  auto samples = samplesOf(clip("portrait.mp4"));
  cut(samples, 20);
  for (QueuedSample& queued : samplesOf(clip("vp9_opus.webm"))) {
    queued.sample.presentation = queued.sample.presentation + frameTime(20);
    queued.sample.decode = queued.sample.decode + frameTime(20);
    samples.push_back(std::move(queued));
  }
  start(std::move(samples));
  time_.settle();
  timebase_->setRate(1);
  time_.advance(10 * kNanosecondsPerMillisecond);  // the times of the second one are rounded
  expectEveryFrame(0, 20);
  expectEveryFrame(0, 50);
}

TEST_F(SampleRendererTest, FlushingForgetsWhatIsNotShownAndKeepsThePicture) {
  start(samplesOf(clip("h264_30.mp4")));
  time_.settle();
  renderer_->flush(SampleRenderer::Image::Keep);
  timebase_->setRate(1);
  time_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(shown(), 0);
  EXPECT_TRUE(renderer_->frames()->hasFrame());
  // The next run may lie before the picture that stayed.
  timebase_->setTime(kCMTimeZero);
  feed(samplesOf(clip("no_b_frames.mp4")));
  enterPeriod();
  time_.advance(kNanosecondsPerSecond / 10);
  EXPECT_EQ(shown(), 3);
}

TEST_F(SampleRendererTest, FlushingWithTheImageLeavesNothingAtOnce) {
  start(samplesOf(clip("h264_30.mp4")));
  time_.settle();
  timebase_->setRate(1);
  time_.advance(kNanosecondsPerSecond / 2);
  renderer_->flush(SampleRenderer::Image::Remove);
  EXPECT_FALSE(renderer_->frames()->hasFrame());
  time_.advance(kNanosecondsPerSecond);
  EXPECT_FALSE(renderer_->frames()->hasFrame());
}

// Every codec, and clips of the world.

struct Codec {
  const char* name;
  int frames;
  int firstMilliseconds = 0;  ///< when the first one is shown
};
class EveryCodecRendered : public SampleRendererTest, public testing::WithParamInterface<Codec> {};

TEST_P(EveryCodecRendered, ShowsEachFramePausedAndPlaying) {
  const auto [name, frames, first] = GetParam();
  const std::string path = clip(name);
  const CMTime late = CMTimeMake(first + 10, 1000);  // some containers round their times
  for (const int frame : {0, 1, frames / 2, frames - 2, frames - 1}) {
    start(samplesOf(path, frameTime(frame) + late), frameTime(frame) + late);
    time_.settle();
    ASSERT_EQ(shown(), frame) << "paused";
  }
  start(samplesOf(path));
  time_.settle();
  timebase_->setRate(1);
  time_.advance((first + 10) * kNanosecondsPerMillisecond);
  expectEveryFrame(0, frames);
  EXPECT_EQ(renderer_->status(), SampleRenderer::Status::Rendering);
}

INSTANTIATE_TEST_SUITE_P(Clips, EveryCodecRendered,
                         testing::Values(Codec{"h264_30.mp4", 120}, Codec{"long_gop.mp4", 90},
                                         Codec{"open_gop.mp4", 60}, Codec{"interlaced.mp4", 60},
                                         Codec{"hevc.mp4", 60}, Codec{"hevc_10bit.mp4", 30},
                                         Codec{"hevc_12bit.mp4", 15}, Codec{"h264_rgb.mp4", 15},
                                         Codec{"vp8_vorbis.webm", 60}, Codec{"vp9_opus.webm", 60},
                                         Codec{"av1.mp4", 30}, Codec{"mpeg4_mp3.mp4", 60},
                                         Codec{"h264.mkv", 60, 23}, Codec{"fragmented.mp4", 60}),
                         [](const testing::TestParamInfo<Codec>& tested) {
                           std::string name = tested.param.name;
                           std::replace(name.begin(), name.end(), '.', '_');
                           return name;
                         });

}  // namespace
}  // namespace zaffo::media
