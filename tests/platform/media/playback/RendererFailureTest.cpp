// SPDX-License-Identifier: Apache-2.0

// Samples that cannot be decoded.

#include "platform/foundation/AVError.h"
#include "platform/media/playback/RendererFixture.h"

namespace zaffo::media {
namespace {

using test::clip;
using Status = SampleRenderer::Status;

class RendererFailureTest : public RendererFixture {
 protected:
  static void damage(QueuedSample& queued) {
    AVPacket& packet = *queued.sample.packet;
    ASSERT_EQ(av_packet_make_writable(&packet), 0);
    for (int i = 0; i < packet.size; ++i) packet.data[i] ^= 0x5A;
  }

  void expectFailed(AVError code) {
    EXPECT_EQ(renderer_->status(), Status::Failed);
    ASSERT_TRUE(renderer_->error());
    EXPECT_EQ(renderer_->error()->domain(), AVFoundationErrorDomain);
    EXPECT_EQ(renderer_->error()->code(), code);
    EXPECT_FALSE(renderer_->error()->localizedDescription().empty());
  }
};

TEST_F(RendererFailureTest, ACodecWithoutADecoderFailsAtTheFirstSample) {
  auto samples = samplesOf(clip("refused_codec.mp4"));
  samples.resize(1);
  start(std::move(samples));
  time_.settle();
  expectFailed(AVErrorDecoderNotFound);
  EXPECT_EQ(statusChanges_, 2) << "Rendering, then Failed";
}

TEST_F(RendererFailureTest, ARunInWhichNothingCanBeDecodedFails) {
  auto samples = samplesOf(clip("h264_30.mp4"));
  for (QueuedSample& queued : samples) damage(queued);
  start(std::move(samples));
  time_.settle();
  expectFailed(AVErrorDecodeFailed);
  EXPECT_TRUE(renderer_->error()->underlyingError()) << "what the decoder said";
}

TEST_F(RendererFailureTest, ARunWithoutAKeyFrameFails) {
  start(samplesOf(clip("no_key_frame.mp4")));
  time_.settle();
  expectFailed(AVErrorDecodeFailed);
}

TEST_F(RendererFailureTest, ALongRunFailsBeforeItsEnd) {
  timebase_->setRate(1);
  const auto samples = samplesOf(clip("no_key_frame.mp4"));
  int sent = 0;
  for (; sent < 1000 && renderer_->status() != Status::Failed; ++sent) {
    const Sample& from = samples[static_cast<std::size_t>(sent) % samples.size()].sample;
    QueuedSample queued;
    queued.format = samples.front().format;
    queued.sample.packet.reset(av_packet_clone(from.packet.get()));
    queued.sample.presentation = queued.sample.decode = frameTime(sent);
    renderer_->enqueue(std::move(queued));
    time_.advance(kNanosecondsPerSecond / 30);
  }
  expectFailed(AVErrorDecodeFailed);
  EXPECT_LT(sent, 400);
}

TEST_F(RendererFailureTest, ALongRunFailsAfterAsManyThatShouldHaveBeenShownWhateverPrecedesThem) {
  const auto samples = samplesOf(clip("no_key_frame.mp4"));
  const auto enqueue = [&](int number, bool isShown) {
    const Sample& from = samples[static_cast<std::size_t>(number) % samples.size()].sample;
    QueuedSample queued;
    queued.format = samples.front().format;
    queued.sample.packet.reset(av_packet_clone(from.packet.get()));
    queued.sample.presentation = queued.sample.decode = frameTime(number);
    queued.sample.decodeOnly = !isShown;
    queued.displayImmediately = number == 0;
    renderer_->enqueue(std::move(queued));
  };
  int sent = 0;
  for (; sent < 1000; ++sent) enqueue(sent, false);
  timebase_->setTime(frameTime(sent));
  time_.settle();
  EXPECT_EQ(renderer_->status(), Status::Rendering) << "none was to be shown yet";
  for (int shown = 0; shown < 299; ++shown) enqueue(sent++, true);
  time_.settle();
  EXPECT_EQ(renderer_->status(), Status::Rendering);
  enqueue(sent, true);
  time_.settle();
  expectFailed(AVErrorDecodeFailed);
}

TEST_F(RendererFailureTest, SingleDamagedSamplesOfAGoodRunDoNotFailIt) {
  auto samples = samplesOf(clip("no_b_frames.mp4"));
  damage(samples[3]);
  damage(samples[40]);
  start(std::move(samples));
  time_.settle();
  timebase_->setRate(1);
  time_.advance(kNanosecondsPerSecond + kNanosecondsPerSecond / 10 + 2000);
  EXPECT_EQ(shown(), 33);
  time_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(renderer_->status(), Status::Rendering);
  EXPECT_FALSE(renderer_->error());
}

TEST_F(RendererFailureTest, ADamagedFrameIsReplacedByTheLastBeforeIt) {
  auto samples = samplesOf(clip("no_b_frames.mp4"));
  damage(samples[20]);
  start(std::move(samples), frameTime(20));
  time_.settle();
  EXPECT_EQ(shown(), 19);
  EXPECT_EQ(renderer_->status(), Status::Rendering);
}

TEST_F(RendererFailureTest, ARunThatBeginsDamagedShowsItsFirstGoodFrame) {
  auto samples = samplesOf(clip("no_b_frames.mp4"));
  damage(samples[0]);
  start(std::move(samples));
  time_.settle();
  EXPECT_EQ(renderer_->status(), Status::Rendering);
  EXPECT_TRUE(renderer_->frames()->hasFrame());
}

TEST_F(RendererFailureTest, AFailedOneTakesNothingUntilItIsFlushedWithItsImage) {
  start(samplesOf(clip("refused_codec.mp4")));
  time_.settle();
  EXPECT_FALSE(renderer_->isReadyForMore());
  renderer_->flush(SampleRenderer::Image::Keep);
  EXPECT_EQ(renderer_->status(), Status::Failed);
  auto samples = samplesOf(clip("h264_30.mp4"));
  samples.front().displayImmediately = true;
  renderer_->enqueue(std::move(samples.front()));
  time_.settle();
  EXPECT_FALSE(renderer_->frames()->hasFrame());
  expectFailed(AVErrorDecoderNotFound);

  renderer_->stopRequesting();  // what is left of the first clip would be asked for again
  renderer_->flush(SampleRenderer::Image::Remove);
  EXPECT_EQ(renderer_->status(), Status::Unknown);
  EXPECT_FALSE(renderer_->error());
  EXPECT_EQ(statusChanges_, 3);
  start(samplesOf(clip("h264_30.mp4")));
  time_.settle();
  EXPECT_EQ(shown(), 0);
  EXPECT_EQ(renderer_->status(), Status::Rendering);
  EXPECT_EQ(statusChanges_, 4);
}

TEST_F(RendererFailureTest, AFlushWhileAFailureIsFoundLeavesTheNextRunAlone) {
  for (int i = 0; i < 50; ++i) {
    start(samplesOf(clip("refused_codec.mp4")));
    start(samplesOf(clip("h264_30.mp4")));
    time_.settle();
    ASSERT_EQ(renderer_->status(), Status::Rendering);
    ASSERT_EQ(shown(), 0);
  }
}

TEST_F(RendererFailureTest, EveryDamagedFileEndsWithAPictureOrAnError) {
  for (const char* name :
       {"damaged_half.mp4", "no_first_key_frame.mp4", "absurd_duration.mp4", "zero_duration.mp4"}) {
    start(samplesOf(clip(name)));
    time_.settle();
    EXPECT_TRUE(renderer_->frames()->hasFrame() || renderer_->status() == Status::Failed) << name;
    timebase_->setRate(1);
    time_.advance(5 * kNanosecondsPerSecond);
    EXPECT_TRUE(renderer_->frames()->hasFrame() || renderer_->status() == Status::Failed) << name;
  }
}

}  // namespace
}  // namespace zaffo::media
