// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/FileSampleSource.h"

#include <algorithm>
#include <cctype>
#include <cerrno>

#include "doubles/ProcessCounts.h"
#include "platform/media/Decoding.h"
#include "platform/media/FFmpegError.h"
#include "platform/media/source/SamplePrint.h"

namespace zaffo::media {
namespace {

using test::clip;
using test::frameNumber;

NSErrorPtr refusalOf(const std::string& path) {
  return FileSampleSource::open(path).error();
}

void expectRefused(const std::string& path, AVError code, const std::string& text) {
  const auto error = refusalOf(path);
  ASSERT_TRUE(error) << path;
  EXPECT_EQ(error->domain(), AVFoundationErrorDomain) << path;
  EXPECT_EQ(error->code(), code) << path;
  EXPECT_NE(error->localizedDescription().find(text), std::string::npos)
      << path << ": " << error->localizedDescription();
}

TEST(FileSampleSource, DescribesTheTracksOfAFile) {
  const auto source = openClip(clip("h264_30.mp4"));
  ASSERT_EQ(source->tracks().size(), 2u);
  const AVAssetTrack& video = *trackOfType(*source, AVMediaTypeVideo);
  EXPECT_EQ(video.codec, "h264");
  EXPECT_EQ(video.naturalSize, (CGSize{192, 108}));
  EXPECT_EQ(video.preferredTransform, CGAffineTransformIdentity);
  EXPECT_NEAR(video.nominalFrameRate, 30, 0.01);
  EXPECT_EQ(video.languageCode, "und");
  EXPECT_EQ(video.naturalTimeScale, 15360);
  EXPECT_EQ(video.timeRange, CMTimeRangeMake(kCMTimeZero, CMTimeMake(4, 1)));
  const AVAssetTrack& audio = *trackOfType(*source, AVMediaTypeAudio);
  EXPECT_EQ(audio.codec, "aac");
  EXPECT_EQ(audio.naturalSize, CGSizeZero);
  EXPECT_EQ(audio.naturalTimeScale, 44100);
  EXPECT_NE(audio.trackID, video.trackID);
  EXPECT_EQ(source->duration(), CMTimeMake(4, 1));
  EXPECT_TRUE(source->isPlayable());
}

TEST(FileSampleSource, RatesAndTimeScalesAreThoseOfTheFile) {
  const auto rate = [](const char* name) {
    return trackOfType(*openClip(clip(name)), AVMediaTypeVideo)->nominalFrameRate;
  };
  EXPECT_NEAR(rate("h264_24.mp4"), 24, 0.01);
  EXPECT_NEAR(rate("h264_25.mp4"), 25, 0.01);
  EXPECT_NEAR(rate("h264_ntsc.mp4"), 29.97, 0.01);
  EXPECT_NEAR(rate("h264_50.mp4"), 50, 0.01);
  EXPECT_NEAR(rate("h264_60.mp4"), 60, 0.01);
  EXPECT_NEAR(rate("vp9_opus.webm"), 30, 0.1);
}

TEST(FileSampleSource, TheTransformTurnsIntoThePositiveQuadrant) {
  const CGRect natural = CGRectMake(0, 0, 144, 256);
  const auto track = [](const char* name) {
    return trackOfType(*openClip(clip(name)), AVMediaTypeVideo);
  };
  for (const char* name : {"rotated_90.mp4", "rotated_270.mp4"}) {
    EXPECT_EQ(track(name)->naturalSize, natural.size);
    EXPECT_EQ(CGRectApplyAffineTransform(natural, track(name)->preferredTransform),
              CGRectMake(0, 0, 256, 144))
        << name;
  }
  // A quarter turn clockwise takes the top left corner to the top right.
  EXPECT_EQ(CGPointApplyAffineTransform({0, 0}, track("rotated_90.mp4")->preferredTransform),
            (CGPoint{256, 0}));
  EXPECT_EQ(CGPointApplyAffineTransform({0, 0}, track("rotated_270.mp4")->preferredTransform),
            (CGPoint{0, 144}));
  EXPECT_EQ(CGPointApplyAffineTransform({0, 0}, track("rotated_180.mp4")->preferredTransform),
            (CGPoint{144, 256}));
}

TEST(FileSampleSource, WidePixelsWidenTheNaturalSize) {
  const auto track = trackOfType(*openClip(clip("anamorphic.mp4")), AVMediaTypeVideo);
  EXPECT_EQ(track->naturalSize, (CGSize{256, 108}));
}

TEST(FileSampleSource, TheDurationIsTheLongestTracks) {
  EXPECT_NEAR(CMTimeGetSeconds(openClip(clip("short_audio.mp4"))->duration()), 2, 1e-6);
  EXPECT_NEAR(CMTimeGetSeconds(openClip(clip("long_audio.mp4"))->duration()), 2, 1e-6);
  EXPECT_NEAR(CMTimeGetSeconds(openClip(clip("late_video.mp4"))->duration()), 4.5, 0.01);
  EXPECT_NEAR(CMTimeGetSeconds(openClip(clip("audio.mp3"))->duration()), 3, 0.06);
  EXPECT_NEAR(CMTimeGetSeconds(openClip(clip("audio.aac"))->duration()), 3, 0.3);
  EXPECT_NEAR(CMTimeGetSeconds(openClip(clip("fragmented.mp4"))->duration()), 2, 0.1);
}

TEST(FileSampleSource, AFragmentedFileEndsWhenItsLastPictureDoes) {
  const auto source = openClip(clip("fragmented_late.mp4"));
  const CMTimeRange range = trackOfType(*source, AVMediaTypeVideo)->timeRange;
  EXPECT_NEAR(CMTimeGetSeconds(range.start), 2 / 30.0, 1e-3);
  EXPECT_NEAR(CMTimeGetSeconds(CMTimeRangeGetEnd(range)), 62 / 30.0, 1e-3);
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  EXPECT_EQ(readAll(*cursor).size(), 60u);  // from the first one on
}

TEST(FileSampleSource, DurationsThatCannotBeTrueAreMeasured) {
  EXPECT_NEAR(CMTimeGetSeconds(openClip(clip("zero_duration.mp4"))->duration()), 4, 0.1);
  EXPECT_NEAR(CMTimeGetSeconds(openClip(clip("absurd_duration.mp4"))->duration()), 4, 0.1);
}

TEST(FileSampleSource, OneDescriptorServesAllCursorsAndEndsWithTheLast) {
  const auto before = descriptorCount();
  auto source = openClip(clip("h264_30.mp4"));
  EXPECT_EQ(descriptorCount(), before + 1);
  {
    std::vector<std::unique_ptr<SampleCursor>> cursors;
    for (int i = 0; i < 3; ++i) cursors.push_back(openTrack(*source, AVMediaTypeVideo));
    cursors.push_back(openTrack(*source, AVMediaTypeAudio));
    EXPECT_EQ(descriptorCount(), before + 1);
    source.reset();
    Sample sample;
    EXPECT_EQ(cursors.front()->next(sample), Outcome::Ready);
  }
  EXPECT_EQ(descriptorCount(), before);
}

TEST(FileSampleSource, CursorsDoNotDisturbEachOther) {
  const auto source = openClip(clip("h264_30.mp4"));
  const auto one = openTrack(*source, AVMediaTypeVideo);
  const auto two = openTrack(*source, AVMediaTypeVideo);
  ASSERT_TRUE(two->seek(CMTimeMake(3, 1)));
  Sample first, second;
  ASSERT_EQ(one->next(first), Outcome::Ready);
  ASSERT_EQ(two->next(second), Outcome::Ready);
  EXPECT_EQ(first.presentation, kCMTimeZero);
  EXPECT_EQ(second.presentation, CMTimeMake(3, 1));
}

TEST(FileSampleSource, ACursorAfterAnotherStartsAtTheBeginningOfItsOwnTrack) {
  const auto source = openClip(clip("h264_30.mp4"));
  for (const AVMediaType type : {AVMediaTypeVideo, AVMediaTypeAudio, AVMediaTypeVideo}) {
    const auto samples = readAll(*openTrack(*source, type));
    EXPECT_EQ(samples.size(), type == AVMediaTypeVideo ? 120u : 174u);
  }
}

class EveryCursorOf : public testing::TestWithParam<const char*> {};

TEST_P(EveryCursorOf, GivesTheSameSamplesWhereverItsDemuxerComesFrom) {
  const auto source = openClip(clip(GetParam()));
  for (const auto& track : source->tracks()) {
    std::vector<std::unique_ptr<SampleCursor>> cursors;
    for (int i = 0; i < 3; ++i) {
      cursors.push_back(source->openCursor(track->trackID).valueOr(nullptr));
      ASSERT_TRUE(cursors.back());
    }
    const auto samples = fingerprintsOf(readAll(*cursors.front()));
    EXPECT_GT(samples.size(), TrackHead::kMostSamples);
    for (int i = 1; i < 3; ++i) EXPECT_EQ(fingerprintsOf(readAll(*cursors[i])), samples) << i;
    ASSERT_TRUE(cursors.front()->seek(kCMTimeZero));
    EXPECT_EQ(fingerprintsOf(readAll(*cursors.front())), samples) << "after a seek";
    cursors.clear();
    const auto again = source->openCursor(track->trackID).valueOr(nullptr);
    EXPECT_EQ(fingerprintsOf(readAll(*again)), samples) << "after others";
  }
}

INSTANTIATE_TEST_SUITE_P(Clips, EveryCursorOf,
                         testing::Values("h264_30.mp4", "h264_30_moov_last.mp4", "edit_list.mp4",
                                         "edit_list_hevc.mp4", "fragmented.mp4", "late_video.mp4",
                                         "fragmented_late.mp4", "vp9_opus.webm", "h264.mkv",
                                         "gradual_refresh.mkv", "audio.mp3", "audio.aac",
                                         "audio.ogg", "audio.flac", "audio.wav"),
                         [](const testing::TestParamInfo<const char*>& clipInfo) {
                           std::string name = clipInfo.param;
                           std::ranges::replace(name, '.', '_');
                           return name;
                         });

TEST(FileSampleSource, ItsTracksNameItAndDoNotKeepIt) {
  auto source = openClip(clip("h264_25.mp4"));
  const auto tracks = source->tracks();
  ASSERT_EQ(tracks.size(), 2u);
  for (const auto& track : tracks) EXPECT_EQ(track->source.lock(), source);
  source.reset();
  for (const auto& track : tracks) EXPECT_TRUE(track->source.expired());
}

TEST(FileSampleSource, RefusesATrackThatItHasNot) {
  const auto source = openClip(clip("video_only.mp4"));
  EXPECT_TRUE(source->openCursor(7).error());
}

TEST(FileSampleSource, AMissingFileIsAnErrorThatNamesIt) {
  const std::string path = clip("no such file.mp4");
  expectRefused(path, AVErrorUnknown, path);
  const auto underlying = refusalOf(path)->underlyingError();
  ASSERT_TRUE(underlying);
  EXPECT_EQ(underlying->domain(), NSPOSIXErrorDomain);
  EXPECT_EQ(underlying->code(), ENOENT);
}

TEST(FileSampleSource, AFolderOrADeviceIsNoFile) {
  expectRefused(clip(""), AVErrorUnknown, "cannot be opened");
  expectRefused("/dev/null", AVErrorUnknown, "cannot be opened");
}

TEST(FileSampleSource, FilesOfNoKnownFormatAreNotRecognised) {
  for (const char* name : {"empty.mp4", "text.mp4"}) {
    expectRefused(clip(name), AVErrorFileFormatNotRecognized, "format");
  }
}

TEST(FileSampleSource, PlaylistsAndScriptsThatPoseAsVideosOpenNothing) {
  for (const char* name :
       {"playlist_m3u8.mp4", "playlist_concat.mp4", "playlist_sdp.mp4", "playlist_dash.mp4"}) {
    expectRefused(clip(name), AVErrorFileFormatNotRecognized, "format");
  }
}

TEST(FileSampleSource, AFileCutBeforeItsIndexIsRefusedAtEveryTenth) {
  for (int tenth = 1; tenth <= 9; ++tenth) {
    const std::string path = clip("cut_moov_last_" + std::to_string(tenth) + ".mp4");
    expectRefused(path, AVErrorFileFailedToParse, "incomplete");
    const auto underlying = refusalOf(path)->underlyingError();
    ASSERT_TRUE(underlying);
    EXPECT_EQ(underlying->domain(), FFmpegErrorDomain);
    EXPECT_FALSE(underlying->localizedDescription().empty());
  }
}

TEST(FileSampleSource, AFileCutAfterItsIndexPlaysUpToTheCutAtEveryTenth) {
  std::size_t before = 0;
  for (int tenth = 1; tenth <= 9; ++tenth) {
    const auto source = openClip(clip("cut_" + std::to_string(tenth) + ".mp4"));
    ASSERT_TRUE(source);
    EXPECT_EQ(source->duration(), CMTimeMake(4, 1));
    const auto samples = readAll(*openTrack(*source, AVMediaTypeVideo), Outcome::Error);
    EXPECT_GE(samples.size(), before);
    before = samples.size();
  }
  EXPECT_GT(before, 90u);
}

TEST(FileSampleSource, AStreamingFileCutAnywherePlaysUpToTheCut) {
  for (int tenth = 1; tenth <= 9; ++tenth) {
    const auto source = openClip(clip("cut_" + std::to_string(tenth) + ".webm"));
    ASSERT_TRUE(source);
    const auto cursor = openTrack(*source, AVMediaTypeVideo);
    Sample sample;
    int count = 0;
    while (cursor->next(sample) == Outcome::Ready) ++count;
    EXPECT_LT(count, 60);
    EXPECT_GE(count, tenth * 4);
  }
}

TEST(FileSampleSource, ProtectedContentIsToldAsSuch) {
  const auto source = openClip(clip("protected.mp4"));
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  EXPECT_TRUE(readAll(*cursor, Outcome::Error).empty());
  ASSERT_TRUE(cursor->error());
  EXPECT_EQ(cursor->error()->code(), AVErrorContentIsProtected);
  EXPECT_NE(cursor->error()->localizedDescription().find("protected"), std::string::npos);
}

TEST(FileSampleSource, TheHeaderTellsWhichTracksCannotBeDecoded) {
  const auto reason = [](const char* name, AVMediaType type) {
    const auto source = openClip(clip(name));
    const auto error = source->whyNotDecoded(trackOfType(*source, type)->trackID);
    return error ? error->code() : 0;
  };
  for (const char* name : {"protected_with_sound.mp4", "protected.webm"})
    EXPECT_EQ(reason(name, AVMediaTypeVideo), AVErrorContentIsProtected) << name;
  for (const char* name : {"protected_with_sound.mp4", "protected_sound.mp4"})
    EXPECT_EQ(reason(name, AVMediaTypeAudio), AVErrorContentIsProtected) << name;
  EXPECT_EQ(reason("unknown_codec_with_sound.mp4", AVMediaTypeVideo), AVErrorDecoderNotFound);
  EXPECT_EQ(reason("unknown_codec_with_sound.mp4", AVMediaTypeAudio), 0);
  EXPECT_EQ(reason("protected.webm", AVMediaTypeAudio), 0);
  EXPECT_EQ(reason("protected_sound.mp4", AVMediaTypeVideo), 0);
}

TEST(FileSampleSource, ItsPictureDecidesWhetherAFileCanBePlayed) {
  for (const char* name : {"protected_with_sound.mp4", "unknown_codec_with_sound.mp4"})
    EXPECT_FALSE(openClip(clip(name))->isPlayable()) << name;
  for (const char* name : {"protected_sound.mp4", "audio_only.m4a", "no_key_frame.mp4"})
    EXPECT_TRUE(openClip(clip(name))->isPlayable()) << name;
}

TEST(FileSampleSource, ACodecThatNobodyKnowsIsCalledWhatTheFileCallsIt) {
  const auto error = openClip(clip("unknown_codec.mp4"))->whyNotPlayed();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->localizedDescription(), "There is no decoder for \"zzzz\".");
}

TEST(FileSampleSource, AFileOfAnUnknownCodecOpensAndCannotBePlayed) {
  const auto source = openClip(clip("unknown_codec.mp4"));
  ASSERT_EQ(source->tracks().size(), 1u);
  EXPECT_FALSE(source->isPlayable());
}

TEST(FileSampleSource, DamageInTheSamplesNeitherStopsTheReaderNorTheDecoder) {
  int errors = 0;
  const auto frames = decodeVideo(clip("damaged_half.mp4"), &errors);
  EXPECT_GE(frames.size(), 40u);
  EXPECT_GT(errors, 0);
}

struct RealClip {
  const char* name;
  std::size_t frames;
  double seconds;
};

class RealClips : public testing::TestWithParam<RealClip> {};

TEST_P(RealClips, PlayFromEndToEnd) {
  const auto path = test::realClip(GetParam().name);
  if (!path) GTEST_SKIP() << "the clips from outside are not here";
  const auto source = openClip(*path);
  ASSERT_TRUE(source);
  EXPECT_NEAR(CMTimeGetSeconds(source->duration()), GetParam().seconds, 0.05);
  int errors = 0;
  if (trackOfType(*source, AVMediaTypeVideo)) {
    const auto frames = decodeVideo(*path, &errors);
    EXPECT_EQ(frames.size(), GetParam().frames);
    for (std::size_t i = 1; i < frames.size(); ++i) {
      EXPECT_GT(frames[i].presentation, frames[i - 1].presentation);
    }
  }
  if (trackOfType(*source, AVMediaTypeAudio)) {
    const Sound sound = decodeAudio(*path, &errors);
    EXPECT_EQ(sound.jumps, 0);
    EXPECT_LE(static_cast<double>(sound.frames()) / kTestOutputRate, GetParam().seconds + 0.02);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Files, RealClips,
    testing::Values(
        RealClip{"bear-vp9-odd-dimensions.webm", 30, 1.0}, RealClip{"bear-vp9.webm", 82, 2.703},
        RealClip{"bt601.mp4", 30, 1.087}, RealClip{"flower.mp4", 150, 5.055},
        RealClip{"flower.webm", 150, 5.059}, RealClip{"friday.mp4", 185, 6.166},
        RealClip{"h265_bframes.mp4", 30, 1.0}, RealClip{"iibbibb_editlist_videoonly.mp4", 12, 12.5},
        RealClip{"sample_audio_only.mp4", 0, 1.088}, RealClip{"sample_av1.mp4", 30, 1.088},
        RealClip{"sample_edit_list_only_preroll_sync_sample.mp4", 16, 0.533},
        RealClip{"sample_fragmented.mp4", 30, 1.068},
        RealClip{"sample_mdat_too_long.mp4", 30, 1.067}, RealClip{"sample_portrait.mp4", 30, 1.088},
        RealClip{"sample_rotate_and_reflect.mp4", 30, 1.067},
        RealClip{"sample_shorter_audio.mp4", 72, 1.2},
        RealClip{"sample_with_invalid_nalu.mp4", 29, 1.0}),
    [](const testing::TestParamInfo<RealClip>& clipInfo) {
      std::string name = clipInfo.param.name;
      std::ranges::replace_if(
          name, [](char c) { return !std::isalnum(c); }, '_');
      return name;
    });

}  // namespace
}  // namespace zaffo::media
