// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/FileSampleCursor.h"

#include <algorithm>
#include <cmath>

#include "fast/DamagedClip.h"
#include "platform/foundation/AVError.h"
#include "platform/media/Decoding.h"

namespace zaffo::media {
namespace {

using test::clip;
using test::frameNumber;

/// The frame with the largest presentation time up to `time`, decoded from where the cursor stands.
std::optional<int> numberShownAt(CMTime time, SampleCursor& cursor, VideoDecoder& decoder) {
  decoder.reset();
  std::optional<int> number;
  CMTime last = kCMTimeNegativeInfinity;
  for (const VideoFrame& frame : decodeRest<VideoFrame>(cursor, decoder)) {
    if (frame.presentation > time || frame.presentation < last) continue;
    last = frame.presentation;
    number = frameNumber(frame.buffer);
  }
  return number;
}

class SeekingToEveryFrame : public testing::TestWithParam<const char*> {};

TEST_P(SeekingToEveryFrame, LandsOnASyncSampleThatDecodingItNeeds) {
  const auto source = openClip(clip(GetParam()));
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  const auto decoder = openVideoDecoder(*cursor);
  const auto frames = decodeRest<VideoFrame>(*cursor, *decoder);
  ASSERT_GE(frames.size(), 10u);
  // Backwards, so that no seek profits from where the one before it left off.
  for (auto frame = frames.rbegin(); frame != frames.rend(); ++frame) {
    ASSERT_TRUE(cursor->seek(frame->presentation));
    Sample sample;
    ASSERT_EQ(cursor->next(sample), Outcome::Ready);
    EXPECT_TRUE(sample.sync);
    EXPECT_LE(sample.presentation, frame->presentation);
    ASSERT_TRUE(cursor->seek(frame->presentation));
    ASSERT_EQ(numberShownAt(frame->presentation, *cursor, *decoder), frameNumber(frame->buffer))
        << CMTimeDescription(frame->presentation);
  }
}

INSTANTIATE_TEST_SUITE_P(Clips, SeekingToEveryFrame,
                         testing::Values("h264_25.mp4", "h264_ntsc.mp4", "open_gop.mp4", "hevc.mp4",
                                         "interlaced.mp4", "vfr.mp4", "h264.mkv", "vp9_opus.webm",
                                         "vp8_vorbis.webm", "av1.mp4", "mpeg4_mp3.mp4",
                                         "fragmented.mp4", "edit_list.mp4", "edit_list_hevc.mp4",
                                         "hevc.mkv", "no_b_frames.mp4", "gradual_refresh.mkv",
                                         "gradual_refresh_fragmented.mp4"),
                         [](const testing::TestParamInfo<const char*>& clipInfo) {
                           std::string name = clipInfo.param;
                           std::replace(name.begin(), name.end(), '.', '_');
                           return name;
                         });

Sample firstAfterSeek(SampleCursor& cursor, CMTime time) {
  EXPECT_TRUE(cursor.seek(time));
  Sample sample;
  EXPECT_EQ(cursor.next(sample), Outcome::Ready);
  return sample;
}

TEST(FileSampleCursor, ASeekGoesToTheLastKeyFrameThatIsShownNoLater) {
  const auto source = openClip(clip("h264_30.mp4"));
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  const auto landing = [&](CMTime time) { return firstAfterSeek(*cursor, time).presentation; };
  EXPECT_EQ(landing(CMTimeMake(59, 30)), CMTimeMake(1, 1));
  EXPECT_EQ(landing(CMTimeMake(2, 1)), CMTimeMake(2, 1));
  EXPECT_EQ(landing(CMTimeMake(1999999, 1000000)), CMTimeMake(1, 1));
  EXPECT_EQ(landing(CMTimeMake(61, 30)), CMTimeMake(2, 1));
}

TEST(FileSampleCursor, ADecodeTimeThatTheFileDoesNotTellIsInvalid) {
  for (const char* name : {"h264.mkv", "hevc.mkv"}) {
    const auto source = openClip(clip(name));
    for (const Sample& sample : readAll(*openTrack(*source, AVMediaTypeVideo))) {
      EXPECT_TRUE(CMTIME_IS_NUMERIC(sample.presentation));
      EXPECT_TRUE(CMTIME_IS_INVALID(sample.decode)) << name;
    }
  }
}

TEST(FileSampleCursor, NothingFollowsThatIsPresentedBeforeADecodeTime) {
  for (const char* name : {"h264_30.mp4", "open_gop.mp4", "edit_list_hevc.mp4", "hevc.mp4",
                           "fragmented.mp4", "vp9_opus.webm", "interlaced.mp4", "vfr.mp4"}) {
    const auto source = openClip(clip(name));
    const auto samples = readAll(*openTrack(*source, AVMediaTypeVideo));
    CMTime least = kCMTimePositiveInfinity;
    for (auto sample = samples.rbegin(); sample != samples.rend(); ++sample) {
      least = CMTimeMinimum(least, sample->presentation);
      ASSERT_TRUE(CMTIME_IS_NUMERIC(sample->decode)) << name;
      EXPECT_LE(sample->decode, least) << name;
    }
  }
}

TEST(FileSampleCursor, ASeekBeforeTheStartOrToNoTimeAtAllGoesToTheFirstSample) {
  const auto source = openClip(clip("h264_30.mp4"));
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  for (const CMTime time : {kCMTimeZero, CMTimeMake(-5, 1), kCMTimeNegativeInfinity, kCMTimeInvalid,
                            kCMTimeIndefinite}) {
    EXPECT_EQ(firstAfterSeek(*cursor, time).presentation, kCMTimeZero) << CMTimeDescription(time);
  }
}

TEST(FileSampleCursor, ASeekBeyondTheEndGoesToTheLastKeyFrame) {
  const auto source = openClip(clip("h264_30.mp4"));
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  for (const CMTime time : {CMTimeMake(4, 1), CMTimeMake(4000, 1), kCMTimePositiveInfinity}) {
    EXPECT_EQ(firstAfterSeek(*cursor, time).presentation, CMTimeMake(3, 1))
        << CMTimeDescription(time);
  }
}

TEST(FileSampleCursor, StaysAtItsEndUntilItIsSought) {
  const auto source = openClip(clip("h264_30.mp4"));
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  EXPECT_EQ(readAll(*cursor).size(), 120u);
  Sample sample;
  EXPECT_EQ(cursor->next(sample), Outcome::End);
  EXPECT_EQ(cursor->next(sample), Outcome::End);
  EXPECT_FALSE(cursor->error());
  ASSERT_TRUE(cursor->seek(kCMTimeZero));
  EXPECT_EQ(readAll(*cursor).size(), 120u);
}

TEST(FileSampleCursor, FramesBeforeAnEditListsStartAreMarkedAsNotShown) {
  const auto source = openClip(clip("edit_list.mp4"));
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  const auto samples = readAll(*cursor);
  const auto hidden = std::ranges::count(samples, true, &Sample::decodeOnly);
  EXPECT_EQ(hidden, 10);
  const auto decoder = openVideoDecoder(*cursor);
  ASSERT_TRUE(cursor->seek(kCMTimeZero));
  const auto frames = decodeRest<VideoFrame>(*cursor, *decoder);
  ASSERT_EQ(frames.size(), 10u);
  EXPECT_EQ(frameNumber(frames.front().buffer), 40);
  EXPECT_EQ(frames.front().presentation, kCMTimeZero);
  EXPECT_EQ(frameNumber(frames.back().buffer), 49);
}

TEST(FileSampleCursor, ATrackThatBeginsLaterKeepsItsDelay) {
  const auto frames = decodeVideo(clip("late_video.mp4"));
  ASSERT_EQ(frames.size(), 120u);
  EXPECT_EQ(frameNumber(frames.front().buffer), 0);
  EXPECT_EQ(frames.front().presentation, CMTimeMake(1, 2));
}

TEST(FileSampleCursor, SamplesHaveTheirTracksTimesAndLengths) {
  const auto source = openClip(clip("no_b_frames.mp4"));
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  const auto samples = readAll(*cursor);
  ASSERT_EQ(samples.size(), 60u);
  for (int i = 0; i < 60; ++i) {
    const Sample& sample = samples[static_cast<std::size_t>(i)];
    EXPECT_EQ(sample.presentation, CMTimeMake(i, 30));
    EXPECT_EQ(sample.decode, CMTimeMake(i, 30));
    EXPECT_EQ(sample.duration, CMTimeMake(1, 30));
    EXPECT_EQ(sample.sync, i % 30 == 0);
    EXPECT_FALSE(sample.decodeOnly);
  }
}

TEST(FileSampleCursor, SoundIsSoughtEarlyEnoughForItsDecoderToSettle) {
  for (const char* name : {"h264_30.mp4", "mpeg4_mp3.mp4", "h264_ac3.mp4", "h264_flac.mp4",
                           "h264_pcm.mov", "audio.opus", "audio.ogg"}) {
    const auto source = openClip(clip(name));
    const auto cursor = openTrack(*source, AVMediaTypeAudio);
    const auto decoder = openAudioDecoder(*cursor);
    const Sound whole = join(decodeRest<AudioBlock>(*cursor, *decoder));
    const CMTime time = CMTimeMake(3, 2);
    ASSERT_TRUE(cursor->seek(time));
    decoder->reset();
    const Sound rest = join(decodeRest<AudioBlock>(*cursor, *decoder));
    const int64_t from = kTestOutputRate * 3 / 2;
    EXPECT_LE(rest.first, from) << name;
    ASSERT_EQ(rest.frames(), whole.frames()) << name;
    double worst = 0;
    for (int64_t i = 2 * from; i < 2 * whole.frames(); ++i) {
      const auto at = static_cast<std::size_t>(i);
      worst = std::max(worst, std::abs(double{rest.samples[at]} - double{whole.samples[at]}));
    }
    // Half an output frame of rounding where the rates differ, on the slope of the tone.
    EXPECT_LT(worst, 0.04) << name;
  }
}

// Both are packets of 960 samples after a delay of 312, and one container counts milliseconds.
TEST(FileSampleCursor, TimesOfSoundAreExactWhereTheContainerRoundsThem) {
  for (const char* name : {"loop_tone_opus.mp4", "loop_tone_opus.mkv"}) {
    const auto source = openClip(clip(name));
    const auto cursor = openTrack(*source, AVMediaTypeAudio);
    for (const CMTime from : {kCMTimeZero, CMTimeMake(3, 4)}) {
      ASSERT_TRUE(cursor->seek(from));
      const auto samples = readAll(*cursor);
      ASSERT_GT(samples.size(), 10u);
      for (const Sample& sample : samples) {
        const double frame = CMTimeGetSeconds(sample.presentation) * 48000 + 312;
        EXPECT_NEAR(std::remainder(frame, 960), 0, 1e-6) << name << " " << frame;
      }
    }
  }
}

TEST(FileSampleCursor, ACutFileGivesWhatIsWholeAndThenAnError) {
  for (const AVMediaType type : {AVMediaTypeVideo, AVMediaTypeAudio}) {
    const auto source = openClip(clip("cut_5.mp4"));
    const auto cursor = openTrack(*source, type);
    EXPECT_GT(readAll(*cursor, Outcome::Error).size(), 30u);
    ASSERT_TRUE(cursor->error());
    EXPECT_EQ(cursor->error()->domain(), AVFoundationErrorDomain);
    EXPECT_EQ(cursor->error()->code(), AVErrorFileFailedToParse);
    EXPECT_NE(cursor->error()->localizedDescription().find("incomplete"), std::string::npos);
    Sample sample;
    EXPECT_EQ(cursor->next(sample), Outcome::Error);
    ASSERT_TRUE(cursor->seek(kCMTimeZero));
    EXPECT_FALSE(cursor->error());
    EXPECT_EQ(cursor->next(sample), Outcome::Ready);
  }
}

TEST(FileSampleCursor, BeyondACutThereIsAnErrorAndNoEnd) {
  for (const AVMediaType type : {AVMediaTypeVideo, AVMediaTypeAudio}) {
    const auto source = openClip(clip("cut_5.mp4"));
    for (const CMTime time : {CMTimeMake(7, 2), CMTimeMake(4, 1), kCMTimePositiveInfinity}) {
      const auto cursor = openTrack(*source, type);  // nothing was read before the seek
      ASSERT_TRUE(cursor->seek(time));
      Sample sample;
      ASSERT_EQ(cursor->next(sample), Outcome::Error) << CMTimeDescription(time);
      EXPECT_EQ(cursor->error()->code(), AVErrorFileFailedToParse);
      EXPECT_EQ(cursor->next(sample), Outcome::Error);
      ASSERT_TRUE(cursor->seek(kCMTimeZero));
      EXPECT_FALSE(cursor->error());
      EXPECT_EQ(cursor->next(sample), Outcome::Ready);
    }
  }
}

TEST(FileSampleCursor, AFileThatIsCutAfterItWasReadIsCutAllTheSame) {
  const DamagedClip damaged("h264_30.mp4");
  const auto source = openClip(damaged.path());
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  EXPECT_EQ(readAll(*cursor).size(), 120u);
  damaged.write(damaged.bytes().substr(0, damaged.bytes().size() / 2));
  ASSERT_TRUE(cursor->seek(CMTimeMake(7, 2)));
  Sample sample;
  EXPECT_EQ(cursor->next(sample), Outcome::Error);
}

TEST(FileSampleCursor, AHeaderWithoutItsSamplesIsAnErrorAtOnce) {
  const DamagedClip damaged("h264_30.mp4");
  damaged.write(damaged.bytes().substr(0, damaged.bytes().find("mdat") + 4));
  const auto source = openClip(damaged.path());
  for (const AVMediaType type : {AVMediaTypeVideo, AVMediaTypeAudio}) {
    const auto cursor = openTrack(*source, type);
    Sample sample;
    EXPECT_EQ(cursor->next(sample), Outcome::Error);
    EXPECT_TRUE(cursor->error());
  }
}

}  // namespace
}  // namespace zaffo::media
