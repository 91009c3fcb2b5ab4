// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/VideoDecoder.h"

#include <thread>

#include "doubles/ProcessCounts.h"
#include "platform/foundation/AVError.h"
#include "platform/media/Decoding.h"
#include "platform/media/codec/DecoderThreads.h"

namespace zaffo::media {
namespace {

using test::clip;
using test::frameNumber;

struct Expected {
  const char* name;
  int frames;
  CMTime frameDuration;
  /// How far the container rounds its times.
  double rounding = 0;
  CVPixelFormat format = CVPixelFormat::I420;
};

class EveryCodec : public testing::TestWithParam<Expected> {};

TEST_P(EveryCodec, GivesAllFramesInOrderAtTheirTimes) {
  const Expected& expected = GetParam();
  const std::vector<VideoFrame> frames = decodeVideo(clip(expected.name));
  ASSERT_EQ(static_cast<int>(frames.size()), expected.frames);
  const CMTime start = frames.front().presentation;
  EXPECT_LT(CMTimeGetSeconds(start), 0.1);
  for (int i = 0; i < expected.frames; ++i) {
    const VideoFrame& frame = frames[static_cast<std::size_t>(i)];
    EXPECT_EQ(frameNumber(frame.buffer), i);
    EXPECT_EQ(frame.buffer->format, expected.format);
    const CMTime due = start + CMTimeMultiply(expected.frameDuration, i);
    if (expected.rounding > 0) {
      EXPECT_NEAR(CMTimeGetSeconds(frame.presentation), CMTimeGetSeconds(due), expected.rounding);
    } else {
      EXPECT_EQ(CMTimeCompare(frame.presentation, due), 0)
          << i << ": " << CMTimeDescription(frame.presentation);
    }
  }
}

constexpr CMTime kThirtieth = CMTimeMake(1, 30);
INSTANTIATE_TEST_SUITE_P(
    Clips, EveryCodec,
    testing::Values(
        Expected{"h264_24.mp4", 48, CMTimeMake(1, 24)},
        Expected{"h264_25.mp4", 50, CMTimeMake(1, 25)},
        Expected{"h264_ntsc.mp4", 60, CMTimeMake(1001, 30000)},
        Expected{"h264_30.mp4", 120, kThirtieth},
        Expected{"h264_30_moov_last.mp4", 120, kThirtieth},
        Expected{"h264_50.mp4", 100, CMTimeMake(1, 50)},
        Expected{"h264_60.mp4", 120, CMTimeMake(1, 60)}, Expected{"portrait.mp4", 90, kThirtieth},
        Expected{"long_gop.mp4", 90, kThirtieth}, Expected{"open_gop.mp4", 60, kThirtieth},
        Expected{"interlaced.mp4", 60, kThirtieth}, Expected{"no_b_frames.mp4", 60, kThirtieth},
        Expected{"hevc.mp4", 60, kThirtieth},
        Expected{"hevc_10bit.mp4", 30, kThirtieth, 0, CVPixelFormat::I420P10},
        Expected{"hevc_12bit.mp4", 15, kThirtieth, 0, CVPixelFormat::I420P10},
        Expected{"h264_444.mp4", 15, kThirtieth, 0, CVPixelFormat::I444},
        Expected{"h264_rgb.mp4", 15, kThirtieth, 0, CVPixelFormat::I444},
        Expected{"vp8_vorbis.webm", 60, kThirtieth, 0.0011},
        Expected{"vp9_opus.webm", 60, kThirtieth, 0.0011},
        Expected{"vp9_10bit.webm", 30, kThirtieth, 0.0011, CVPixelFormat::I420P10},
        Expected{"av1.mp4", 30, kThirtieth}, Expected{"av1_opus.webm", 30, kThirtieth, 0.0011},
        Expected{"mpeg4_mp3.mp4", 60, kThirtieth}, Expected{"h264.mkv", 60, kThirtieth, 0.0011},
        Expected{"fragmented.mp4", 60, kThirtieth}),
    [](const testing::TestParamInfo<Expected>& clipInfo) {
      std::string name = clipInfo.param.name;
      std::replace(name.begin(), name.end(), '.', '_');
      return name;
    });

TEST(VideoDecoder, DoesNotGiveAPictureWithoutATime) {
  const auto source = openClip(clip("no_b_frames.mp4"));
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  const auto decoder = openVideoDecoder(*cursor);
  std::vector<VideoFrame> frames;
  std::vector<Sample> samples = readAll(*cursor);
  ASSERT_EQ(samples.size(), 60U);
  samples[7].presentation = kCMTimeInvalid;
  for (const Sample& sample : samples) {
    ASSERT_EQ(decoder->send(sample), Outcome::Ready);
    EXPECT_EQ(collect(*decoder, frames), Outcome::Again);
  }
  decoder->drain();
  EXPECT_EQ(collect(*decoder, frames), Outcome::End);
  ASSERT_EQ(frames.size(), 59U);
  EXPECT_EQ(frameNumber(frames[6].buffer), 6);
  EXPECT_EQ(frameNumber(frames[7].buffer), 8);
}

TEST(VideoDecoder, GivesTheFirstPictureOfASingleSampleWhenDrained) {
  const auto source = openClip(clip("h264_30.mp4"));
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  const auto decoder = openVideoDecoder(*cursor);
  Sample sample;
  ASSERT_EQ(cursor->next(sample), Outcome::Ready);
  ASSERT_EQ(decoder->send(sample), Outcome::Ready);
  decoder->drain();
  VideoFrame frame;
  ASSERT_EQ(decoder->receive(frame), Outcome::Ready);
  EXPECT_EQ(frameNumber(frame.buffer), 0);
  EXPECT_EQ(decoder->receive(frame), Outcome::End);
}

TEST(VideoDecoder, DecodesOnAfterAResetFromASyncSample) {
  const auto source = openClip(clip("h264_30.mp4"));
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  const auto decoder = openVideoDecoder(*cursor);
  (void)decodeRest<VideoFrame>(*cursor, *decoder);
  decoder->reset();
  ASSERT_TRUE(cursor->seek(CMTimeMake(2, 1)));
  const auto frames = decodeRest<VideoFrame>(*cursor, *decoder);
  ASSERT_EQ(frames.size(), 60u);
  EXPECT_EQ(frameNumber(frames.front().buffer), 60);
}

TEST(VideoDecoder, FramesMarkedNotShownAreDecodedAndNotGiven) {
  const auto source = openClip(clip("h264_30.mp4"));
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  const auto decoder = openVideoDecoder(*cursor);
  std::vector<VideoFrame> frames;
  Sample sample;
  while (cursor->next(sample) == Outcome::Ready) {
    sample.decodeOnly = sample.presentation < CMTimeMake(1, 2);
    ASSERT_EQ(decoder->send(sample), Outcome::Ready);
    (void)collect(*decoder, frames);
  }
  decoder->drain();
  (void)collect(*decoder, frames);
  ASSERT_EQ(frames.size(), 105u);
  EXPECT_EQ(frameNumber(frames.front().buffer), 15);
}

TEST(VideoDecoder, SkippingLeavesOutOnlyFramesThatNoOtherNeeds) {
  const auto source = openClip(clip("h264_30.mp4"));
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  const auto decoder = openVideoDecoder(*cursor);
  decoder->setSkipsUnreferencedFrames(true);
  const auto frames = decodeRest<VideoFrame>(*cursor, *decoder);
  EXPECT_LT(frames.size(), 90u);
  EXPECT_GE(frames.size(), 30u);
  for (const VideoFrame& frame : frames) {
    EXPECT_EQ(CMTimeMake(frameNumber(frame.buffer).value_or(-1), 30), frame.presentation);
  }
}

TEST(VideoDecoder, TimesOfTheSamplesComeBackEvenWhenTheyRepeatAndTheirScaleChanges) {
  const auto source = openClip(clip("no_b_frames.mp4"));
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  const auto decoder = openVideoDecoder(*cursor);
  std::vector<VideoFrame> frames;
  for (int loop = 0; loop < 2; ++loop) {
    ASSERT_TRUE(cursor->seek(kCMTimeZero));
    for (int i = 0; i < 10; ++i) {
      Sample sample;
      ASSERT_EQ(cursor->next(sample), Outcome::Ready);
      sample.presentation = CMTimeMake(1000 * loop + i, 7919);
      sample.duration = CMTimeMake(3, 7919);
      ASSERT_EQ(decoder->send(sample), Outcome::Ready);
      (void)collect(*decoder, frames);
    }
  }
  decoder->drain();
  (void)collect(*decoder, frames);
  ASSERT_EQ(frames.size(), 20u);
  for (int i = 0; i < 20; ++i) {
    const VideoFrame& frame = frames[static_cast<std::size_t>(i)];
    EXPECT_EQ(frameNumber(frame.buffer), i % 10);
    EXPECT_EQ(frame.presentation, CMTimeMake(1000 * (i / 10) + i % 10, 7919));
    EXPECT_EQ(frame.duration, CMTimeMake(3, 7919));
  }
}

TEST(VideoDecoder, GoesOnAfterDamagedSamples) {
  const auto source = openClip(clip("h264_30.mp4"));
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  const auto decoder = openVideoDecoder(*cursor);
  std::vector<VideoFrame> frames;
  int errors = 0;
  for (Sample& sample : readAll(*cursor)) {
    const bool damaged =
        sample.presentation > CMTimeMake(1, 2) && sample.presentation < CMTimeMake(1, 1);
    if (damaged) {
      ASSERT_GE(av_packet_make_writable(sample.packet.get()), 0);
      for (int i = 0; i < sample.packet->size; ++i) sample.packet->data[i] ^= 0x5A;
    }
    errors += decoder->send(sample) == Outcome::Error;
    if (decoder->error()) {
      EXPECT_EQ(decoder->error()->domain(), AVFoundationErrorDomain);
      EXPECT_EQ(decoder->error()->code(), AVErrorDecodeFailed);
    }
    (void)collect(*decoder, frames, &errors);
  }
  decoder->drain();
  (void)collect(*decoder, frames, &errors);
  EXPECT_GT(errors, 0);
  ASSERT_GE(frames.size(), 90u);
  EXPECT_EQ(frameNumber(frames.back().buffer), 119);
}

TEST(VideoDecoder, AFrameOutlivesItsDecoder) {
  std::vector<VideoFrame> frames = decodeVideo(clip("no_b_frames.mp4"));
  EXPECT_EQ(frameNumber(frames.at(7).buffer), 7);
}

TEST(VideoDecoder, MatrixAndRangeComeFromThePicture) {
  const auto first = [](const char* name) { return decodeVideo(clip(name)).at(0).buffer; };
  EXPECT_EQ(first("color_bt601.mp4")->matrix, CVColorMatrix::BT601);
  EXPECT_EQ(first("color_bt601.mp4")->range, CVColorRange::Limited);
  EXPECT_EQ(first("color_bt709.mp4")->matrix, CVColorMatrix::BT709);
  EXPECT_EQ(first("color_bt709.mp4")->range, CVColorRange::Limited);
  EXPECT_EQ(first("color_bt601_full.mp4")->matrix, CVColorMatrix::BT601);
  EXPECT_EQ(first("color_bt601_full.mp4")->range, CVColorRange::Full);
  EXPECT_EQ(first("color_bt709_full.mp4")->matrix, CVColorMatrix::BT709);
  EXPECT_EQ(first("color_bt709_full.mp4")->range, CVColorRange::Full);
}

TEST(VideoDecoder, PixelAspectComesFromTheFile) {
  EXPECT_NEAR(decodeVideo(clip("anamorphic.mp4")).at(0).buffer->pixelAspectRatio, 4.0 / 3, 1e-3);
  EXPECT_EQ(decodeVideo(clip("h264_30.mp4")).at(0).buffer->pixelAspectRatio, 1.0);
}

TEST(VideoDecoder, SmallLargeAndOddPicturesAreDecoded) {
  const auto tiny = decodeVideo(clip("tiny.mp4"));
  ASSERT_EQ(tiny.size(), 15u);
  EXPECT_EQ(tiny[0].buffer->cropWidth, 16);
  EXPECT_EQ(tiny[0].buffer->cropHeight, 16);
  const auto odd = decodeVideo(clip("odd_size.webm"));
  ASSERT_EQ(odd.size(), 15u);
  EXPECT_EQ(odd[0].buffer->cropWidth, 195);
  EXPECT_EQ(odd[0].buffer->cropHeight, 109);
  const auto huge = decodeVideo(clip("huge.mp4"));
  ASSERT_EQ(huge.size(), 1u);
  EXPECT_EQ(huge[0].buffer->cropWidth, 8192);
  EXPECT_EQ(huge[0].buffer->cropHeight, 4320);
  EXPECT_EQ(frameNumber(huge[0].buffer), 0);
}

TEST(VideoDecoder, VariableFrameRateKeepsEveryTime) {
  const auto frames = decodeVideo(clip("vfr.mp4"));
  ASSERT_EQ(frames.size(), 60u);
  for (int i = 0; i < 60; ++i) {
    const VideoFrame& frame = frames[static_cast<std::size_t>(i)];
    EXPECT_EQ(frameNumber(frame.buffer), i);
    EXPECT_EQ(CMTimeCompare(frame.presentation, CMTimeMake(i * 3000 + i % 3 * 900, 90000)), 0);
  }
}

TEST(VideoDecoder, RefusesCodecsThatAreNotOnTheListAndSizesBeyondTheLimit) {
  for (const char* name : {"refused_codec.mp4", "unknown_codec.mp4", "absurd_size.mp4"}) {
    const auto source = openClip(clip(name));
    const auto cursor = openTrack(*source, AVMediaTypeVideo);
    const NSErrorPtr error = VideoDecoder::open(cursor->codecParameters()).error();
    ASSERT_TRUE(error) << name;
    EXPECT_EQ(error->domain(), AVFoundationErrorDomain);
    EXPECT_EQ(error->code(), AVErrorDecoderNotFound);
    EXPECT_FALSE(source->isPlayable()) << name;
  }
}

TEST(VideoDecoder, HasTheThreadsThatSizeAndRateOfItsSamplesNeed) {
  const unsigned cores = std::thread::hardware_concurrency();
  // One that decodes on its caller's thread has none of its own.
  const auto threadsFor = [&](const DecoderLoad& load) -> std::size_t {
    const int threads = decoderThreads(load, cores);
    return threads > 1 ? static_cast<std::size_t>(threads) : 0;
  };
  const std::size_t others = threadCountBesideQueues();
  const auto threadsOfDecoder = [others](std::size_t most) {
    return countOfThreadsThatStay(threadCountBesideQueues, others + most) - others;
  };
  const auto expectThreadsFor = [&](const DecoderLoad& load) {
    const std::size_t threads = threadsFor(load);
    EXPECT_EQ(threadsOfDecoder(threads), threads)
        << load.width << "x" << load.height << " at " << load.framesPerSecond;
  };
  CodecParametersPtr parameters(avcodec_parameters_alloc());
  parameters->codec_type = AVMEDIA_TYPE_VIDEO;
  parameters->codec_id = AV_CODEC_ID_H264;
  for (const auto& [width, height] : {std::pair{1280, 720}, {1920, 1080}, {3840, 2160}}) {
    parameters->width = width;
    parameters->height = height;
    for (const int rate : {24, 60, 120}) {
      const auto decoder = VideoDecoder::open(*parameters).valueOr(nullptr);
      ASSERT_TRUE(decoder);
      expectThreadsFor({width, height, 30});
      for (int i = 0; i < 3; ++i) {
        Sample sample;
        sample.packet.reset(av_packet_alloc());
        ASSERT_EQ(av_new_packet(sample.packet.get(), 32), 0);
        std::fill_n(sample.packet->data, 32, uint8_t{0});
        sample.presentation = CMTimeMake(i, rate);
        sample.duration = CMTimeMake(1, rate);
        static_cast<void>(decoder->send(sample));
        const double told = std::max(rate, 30);  // what it was opened with it keeps
        expectThreadsFor({width, height, told});
      }
    }
  }
  EXPECT_EQ(threadsOfDecoder(0), 0U);
}

TEST(VideoDecoder, AStreamWithoutAKeyFrameGivesNoPictureAndEnds) {
  int errors = 0;
  EXPECT_TRUE(decodeVideo(clip("no_key_frame.mp4"), &errors).empty());
}

TEST(VideoDecoder, AStreamThatBeginsBeforeItsFirstKeyFrameStartsThere) {
  int errors = 0;
  const auto frames = decodeVideo(clip("no_first_key_frame.mp4"), &errors);
  ASSERT_EQ(frames.size(), 30u);
  EXPECT_EQ(frameNumber(frames.front().buffer), 30);
}

}  // namespace
}  // namespace zaffo::media
