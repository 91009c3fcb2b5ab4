// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/TrackInfo.h"

extern "C" {
#include <libavutil/display.h>
}

#include <gtest/gtest.h>

namespace zaffo::media {
namespace {

class TrackInfoTest : public testing::Test {
 protected:
  AVStream& stream(AVMediaType type, AVCodecID codec) {
    AVStream* const made = avformat_new_stream(context_.get(), nullptr);
    made->time_base = {1, 1000};
    made->codecpar->codec_type = type == AVMediaTypeVideo ? AVMEDIA_TYPE_VIDEO : AVMEDIA_TYPE_AUDIO;
    made->codecpar->codec_id = codec;
    made->codecpar->width = type == AVMediaTypeVideo ? 64 : 0;
    made->codecpar->height = type == AVMediaTypeVideo ? 48 : 0;
    return *made;
  }
  AVStream& pictures() { return stream(AVMediaTypeVideo, AV_CODEC_ID_H264); }
  std::shared_ptr<AVAssetTrack> describe(AVStream& one, int64_t timelineStart = 0) {
    return describeTrack(*context_, one, timelineStart, false);
  }

  FormatContextPtr context_{avformat_alloc_context()};
};

TEST_F(TrackInfoTest, PictureAndSoundAreTracksAndCoverArtAndTheRestAreNot) {
  AVStream& picture = pictures();
  EXPECT_TRUE(isTrack(picture));
  EXPECT_TRUE(isTrack(stream(AVMediaTypeAudio, AV_CODEC_ID_AAC)));
  picture.disposition = AV_DISPOSITION_ATTACHED_PIC;
  EXPECT_FALSE(isTrack(picture));
  AVStream& words = pictures();
  words.codecpar->codec_type = AVMEDIA_TYPE_SUBTITLE;
  EXPECT_FALSE(isTrack(words));
}

TEST_F(TrackInfoTest, ATrackSaysWhatItIs) {
  (void)pictures();
  AVStream& sound = stream(AVMediaTypeAudio, AV_CODEC_ID_AAC);
  av_dict_set(&sound.metadata, "language", "fra", 0);
  const auto track = describe(sound);
  EXPECT_EQ(track->trackID, 2);
  EXPECT_EQ(track->mediaType, AVMediaTypeAudio);
  EXPECT_EQ(track->codec, "aac");
  EXPECT_EQ(track->languageCode, "fra");
  EXPECT_EQ(track->naturalTimeScale, 1000);
  EXPECT_EQ(describe(pictures())->languageCode, "und");
}

TEST_F(TrackInfoTest, TheSizeCountsPixelsThatAreSquare) {
  AVStream& wide = pictures();
  EXPECT_EQ(describe(wide)->naturalSize.width, 64);
  wide.codecpar->sample_aspect_ratio = {4, 3};
  EXPECT_EQ(describe(wide)->naturalSize.width, 85);
  EXPECT_EQ(describe(wide)->naturalSize.height, 48);
}

TEST_F(TrackInfoTest, TheFrameRateIsTheAverageAndElseOneThatCanBe) {
  AVStream& one = pictures();
  EXPECT_EQ(describe(one)->nominalFrameRate, 0);
  one.r_frame_rate = {90000, 1};
  EXPECT_EQ(describe(one)->nominalFrameRate, 0);
  one.r_frame_rate = {25, 1};
  EXPECT_EQ(describe(one)->nominalFrameRate, 25);
  one.avg_frame_rate = {30, 1};
  EXPECT_EQ(describe(one)->nominalFrameRate, 30);
}

TEST_F(TrackInfoTest, ATurnedPictureLandsInThePositiveQuadrant) {
  AVStream& turned = pictures();
  auto* const matrix = reinterpret_cast<int32_t*>(
      av_stream_new_side_data(&turned, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(int32_t)));
  av_display_rotation_set(matrix, -90);
  const CGAffineTransform t = describe(turned)->preferredTransform;
  EXPECT_NEAR(t.a, 0, 1e-4);
  EXPECT_NEAR(t.b * t.c, -1, 1e-4);
  // Every corner of the picture.
  for (const double x : {0.0, 64.0}) {
    for (const double y : {0.0, 48.0}) {
      EXPECT_GE(t.a * x + t.c * y + t.tx, -1e-3);
      EXPECT_GE(t.b * x + t.d * y + t.ty, -1e-3);
    }
  }
  std::fill_n(matrix, 9, 0);
  EXPECT_EQ(describe(turned)->preferredTransform.a, 1) << "a matrix that leaves nothing to see";
}

TEST_F(TrackInfoTest, BeginsWhereItsFirstTimestampLiesOnTheTimeLine) {
  AVStream& late = pictures();
  late.start_time = 700;
  late.duration = 2000;
  const CMTimeRange range = describe(late, 200)->timeRange;
  EXPECT_EQ(range.start, CMTimeMake(500, 1000));
  EXPECT_EQ(range.duration, CMTimeMake(2, 1));
  EXPECT_EQ(describe(late, 900)->timeRange.start, kCMTimeZero);
}

TEST_F(TrackInfoTest, LastsAsLongAsTheFileWhereTheStreamDoesNotSay) {
  context_->duration = 3 * AV_TIME_BASE;
  EXPECT_EQ(describe(pictures())->timeRange.duration, CMTimeMake(3, 1));
  context_->duration = AV_NOPTS_VALUE;
  EXPECT_EQ(describe(pictures())->timeRange.duration, kCMTimeZero);
}

}  // namespace
}  // namespace zaffo::media
