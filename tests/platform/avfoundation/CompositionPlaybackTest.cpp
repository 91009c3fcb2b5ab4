// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <map>

#include "doubles/PictureLog.h"
#include "platform/avfoundation/AVAssetImageGenerator.h"
#include "platform/avfoundation/AVComposition.h"
#include "platform/avfoundation/PlayerFixture.h"
#include "platform/media/source/Composing.h"

namespace zaffo {
namespace {

using media::appendCut;
using media::picturesOf;
using media::Shown;

constexpr int64_t kMillisecond = kNanosecondsPerMillisecond;

CMTime at(int64_t milliseconds) {
  return CMTimeMake(milliseconds, 1000);
}

CMTimeRange range(int64_t startMilliseconds, int64_t durationMilliseconds) {
  return {at(startMilliseconds), at(durationMilliseconds)};
}

class CompositionPlaybackTest : public PlayerFixture {
 protected:
  /// Appends a range of a clip's picture, and of its sound when `audio_` is there.
  void append(const std::string& name, CMTimeRange part) {
    const std::string path = test::clip(name);
    auto& asset = assets_[name];
    if (!asset) asset = loadedAsset(path);
    if (pictures_[name].empty()) pictures_[name] = picturesOf(path);
    const CMTime place = video_->segments().empty() ? kCMTimeZero : video_->timeRange().duration;
    ASSERT_TRUE(video_->insertTimeRange(part, asset->tracksWithMediaType(AVMediaTypeVideo).front(),
                                        place, nullptr));
    appendCut(pictures_[name], part, place, expected_);
    const auto sound = asset->tracksWithMediaType(AVMediaTypeAudio);
    if (!audio_ || sound.empty()) return;
    ASSERT_TRUE(audio_->insertTimeRange(part, sound.front(), place, nullptr));
  }

  void appendCopies(const std::string& name, CMTimeRange part, int count) {
    for (int i = 0; i < count; ++i) append(name, part);
  }

  void addSound() { audio_ = composition_->addMutableTrackWithMediaType(AVMediaTypeAudio, 0); }

  std::shared_ptr<AVPlayerItem> openComposition() {
    auto item = AVPlayerItem::playerItemWithAsset(composition_);
    player_->replaceCurrentItemWithPlayerItem(item);
    time_.settle();
    return item;
  }

  /// Plays from where the player stands; when media time began to move, by the test's clock.
  int64_t start() {
    player_->setRate(1);
    time_.settle();
    while (seconds() == 0) time_.advance(kMillisecond / 4);
    return time_.nanoseconds() - std::llround(seconds() * 1e9);
  }

  [[nodiscard]] std::vector<ExpectedPicture> expectedPictures() const {
    std::vector<ExpectedPicture> pictures;
    for (const Shown& shown : expected_) {
      pictures.push_back({shown.number, std::llround(CMTimeGetSeconds(shown.from) * 1e9)});
    }
    return pictures;
  }

  /// Plays everything but the last frame and compares what is on show with what should be.
  void expectEveryFrame() {
    openComposition();
    const auto pictures = expectedPictures();
    EXPECT_EQ(shown(), pictures.front().number);
    const int64_t mediaStart = start();
    PictureLog log(time_, [this] { return shown(); });
    const int64_t span = pictures.back().from - (time_.nanoseconds() - mediaStart);
    log.advance(span, 2 * kMillisecond);
    log.expect(pictures, mediaStart);
    EXPECT_GE(log.entries().size() + 2, pictures.size());
  }

  /// A still picture of a time, in milliseconds, is the one that is on show then.
  void expectPicture(AVAssetImageGenerator& generator, int64_t time) {
    CMTime actual;
    NSErrorPtr error;
    const auto image = generator.copyCGImageAtTime(at(time), &actual, &error);
    ASSERT_TRUE(image) << time << (error ? error->localizedDescription() : "");
    const Shown* last = nullptr;
    for (const Shown& picture : expected_) {
      if (picture.from <= at(time)) last = &picture;
    }
    ASSERT_TRUE(last);
    EXPECT_EQ(test::frameNumber(image), last->number) << time;
    EXPECT_NEAR(CMTimeGetSeconds(actual), CMTimeGetSeconds(last->from), 1e-9) << time;
  }

  /// Where the last frame that can be read ends.
  static double secondsOfPicture(const AVAsset& asset) {
    const auto track = asset.tracksWithMediaType(AVMediaTypeVideo).front();
    const auto cursor = asset.sampleSource()->openCursor(track->trackID).valueOr(nullptr);
    media::Sample sample;
    double end = 0;
    while (cursor->next(sample) == media::Outcome::Ready)
      end = std::max(end, CMTimeGetSeconds(sample.presentation + sample.duration));
    return end;
  }

  std::shared_ptr<AVMutableComposition> composition_ = AVMutableComposition::create();
  std::shared_ptr<AVMutableCompositionTrack> video_ =
      composition_->addMutableTrackWithMediaType(AVMediaTypeVideo, 0);
  std::shared_ptr<AVMutableCompositionTrack> audio_;
  std::map<std::string, std::shared_ptr<AVAsset>> assets_;
  std::map<std::string, std::vector<Shown>> pictures_;
  std::vector<Shown> expected_;
};

struct Loop {
  const char* clip;
  int64_t start;
  int64_t length;
  bool withSound;
};

class TenSeamsOf : public CompositionPlaybackTest, public testing::WithParamInterface<Loop> {};

TEST_P(TenSeamsOf, ShowEveryFrameForItsTimeNoneTwiceAndNoneMissing) {
  if (GetParam().withSound) addSound();
  appendCopies(GetParam().clip, range(GetParam().start, GetParam().length), 11);
  expectEveryFrame();
}

INSTANTIATE_TEST_SUITE_P(
    Loops, TenSeamsOf,
    testing::Values(Loop{"h264_24.mp4", 50, 900, true}, Loop{"h264_25.mp4", 50, 900, true},
                    Loop{"h264_30.mp4", 50, 2900, false}, Loop{"h264_30.mp4", 50, 900, true},
                    Loop{"h264_ntsc.mp4", 50, 900, true}, Loop{"h264_50.mp4", 50, 900, true},
                    Loop{"h264_60.mp4", 50, 900, true}, Loop{"vfr.mp4", 50, 1000, false},
                    Loop{"open_gop.mp4", 733, 500, false}, Loop{"hevc.mp4", 50, 500, true},
                    Loop{"vp9_opus.webm", 50, 500, true}, Loop{"long_gop.mp4", 50, 600, false},
                    Loop{"edit_list.mp4", 50, 300, true}, Loop{"h264_30.mp4", 50, 20, false},
                    Loop{"rotated_90.mp4", 50, 400, true}, Loop{"mpeg4_mp3.mp4", 50, 500, true}),
    [](const testing::TestParamInfo<Loop>& loop) {
      std::string name = loop.param.clip;
      std::ranges::replace(name, '.', '_');
      return name + "_" + std::to_string(loop.param.length) +
             (loop.param.withSound ? "_sound" : "");
    });

TEST_F(CompositionPlaybackTest, LongWaysFromTheSyncSampleAreDecodedBeforeTheSeam) {
  appendCopies("long_gop.mp4", range(2500, 300), 11);  // 75 frames before each
  expectEveryFrame();
}

TEST_F(CompositionPlaybackTest, SourcesOfDifferentCodecsAndSizesFollowEachOther) {
  addSound();
  for (int round = 0; round < 3; ++round) {
    append("h264_30.mp4", range(50 + 10 * round, 300));
    append("vp9_opus.webm", range(100, 300));
    append("portrait.mp4", range(70, 300));
    append("hevc.mp4", range(1070, 300));
  }
  expectEveryFrame();
}

TEST_F(CompositionPlaybackTest, ARewindShowsTheFirstFrameAgainAndPlaysOnFromIt) {
  appendCopies("h264_30.mp4", range(50, 900), 3);
  openComposition();
  const auto first = shown();
  EXPECT_EQ(first, 1);  // on show at 0.05 s, a B frame
  for (int round = 0; round < 3; ++round) {
    start();
    time_.advance(1300 * kMillisecond);
    EXPECT_NE(shown(), first);
    player_->setRate(0);
    EXPECT_EQ(seekExactly(kCMTimeZero), true);
    EXPECT_EQ(shown(), first);
    const int64_t mediaStart = start();
    PictureLog log(time_, [this] { return shown(); });
    log.advance(200 * kMillisecond, 2 * kMillisecond);
    log.expect(expectedPictures(), mediaStart);
    player_->setRate(0);
    EXPECT_EQ(seekExactly(kCMTimeZero), true);
  }
}

TEST_F(CompositionPlaybackTest, SeeksAreExactInEverySegmentAndAtTheSeams) {
  appendCopies("h264_25.mp4", range(50, 900), 4);
  openComposition();
  const auto pictures = expected_;
  for (int64_t time = 3599; time >= 0; time -= 119) {
    std::optional<int> expected;
    for (const Shown& picture : pictures) {
      if (picture.from <= at(time)) expected = picture.number;
    }
    ASSERT_EQ(seekExactly(at(time)), true);
    EXPECT_EQ(shown(), expected) << time;
  }
  for (int seam = 1; seam < 4; ++seam) {
    ASSERT_EQ(seekExactly(at(900 * seam)), true);
    EXPECT_EQ(shown(), pictures.front().number);
    ASSERT_EQ(seekExactly(at(900 * seam) - CMTimeMake(1, 1'000'000)), true);
    EXPECT_EQ(shown(), pictures[pictures.size() / 4 - 1].number);
  }
}

TEST_F(CompositionPlaybackTest, PlaysToItsEndOnce) {
  appendCopies("video_only.mp4", range(50, 500), 4);
  openComposition();
  const auto ended = count(AVPlayerItemDidPlayToEndTimeNotification);
  start();
  time_.advance(1990 * kMillisecond);
  EXPECT_EQ(*ended, 0);
  time_.advance(30 * kMillisecond);
  EXPECT_EQ(*ended, 1);
  EXPECT_NEAR(seconds(), 2.0, 1e-3);
  EXPECT_EQ(shown(), expected_.back().number);
}

TEST_F(CompositionPlaybackTest, TheLastFrameBeforeAGapStaysOnShowInIt) {
  append("h264_30.mp4", range(0, 300));
  const auto source = assets_["h264_30.mp4"]->tracksWithMediaType(AVMediaTypeVideo).front();
  ASSERT_TRUE(video_->insertTimeRange(range(1000, 300), source, at(500), nullptr));
  openComposition();
  start();
  time_.advance(400 * kMillisecond);
  EXPECT_EQ(shown(), 8);
  time_.advance(110 * kMillisecond);
  EXPECT_EQ(shown(), 30);
  EXPECT_EQ(seekExactly(at(400)), true);
  EXPECT_EQ(shown(), 8);
}

/// Two copies of a torn file with its sound as a loop lays it: the second copy's is there before
/// the first one's has come to its end.
TEST_F(CompositionPlaybackTest, ATornSourceFailsTheItemWhereItIsTorn) {
  const auto torn = loadedAsset(test::clip("cut_5.mp4"));
  const double whole = secondsOfPicture(*torn);
  ASSERT_GT(whole, 1);
  ASSERT_LT(whole, 3);
  const auto picture = torn->tracksWithMediaType(AVMediaTypeVideo).front();
  const auto sound = torn->tracksWithMediaType(AVMediaTypeAudio).front();
  for (int i = 0; i < 2; ++i) {
    const auto track = composition_->addMutableTrackWithMediaType(AVMediaTypeAudio, 0);
    ASSERT_TRUE(video_->insertTimeRange(range(50, 3900), picture, at(3900 * i), nullptr));
    ASSERT_TRUE(track->insertTimeRange(range(50, 3950), sound, at(3900 * i), nullptr));
  }
  const auto item = openComposition();
  const auto failed = count(AVPlayerItemFailedToPlayToEndTimeNotification);
  const int64_t mediaStart = start();
  while (*failed == 0 && time_.nanoseconds() - mediaStart < 9 * kNanosecondsPerSecond)
    time_.advance(10 * kMillisecond);
  EXPECT_EQ(*failed, 1);
  EXPECT_NEAR(static_cast<double>(time_.nanoseconds() - mediaStart) / 1e9, whole - 0.05, 0.05);
  EXPECT_NEAR(seconds(), whole - 0.05, 0.05);
  ASSERT_NE(item->error(), nullptr);
  EXPECT_EQ(item->error()->code(), AVErrorFileFailedToParse);
  EXPECT_EQ(player_->rate(), 0);
}

TEST_F(CompositionPlaybackTest, ThePlayerShowsTheTransformOfTheTrack) {
  const CGAffineTransform turned{0, 1, -1, 0, 108, 0};
  video_->setPreferredTransform(turned);
  append("h264_30.mp4", range(50, 900));
  openComposition();
  const auto picture = player_->videoOutput()->pictureAtHostTime(TimeSource::now());
  EXPECT_EQ(picture.preferredTransform.b, 1);
  EXPECT_EQ(picture.preferredTransform.tx, 108);
}

TEST_F(CompositionPlaybackTest, PicturesOfSegmentsOfDifferentCodecsAndSizesCanBeMade) {
  for (int round = 0; round < 2; ++round) {
    append("h264_30.mp4", range(50, 300));
    append("vp9_opus.webm", range(100, 300));
    append("portrait.mp4", range(70, 300));
    append("hevc.mp4", range(1070, 300));
  }
  const auto generator = AVAssetImageGenerator::assetImageGeneratorWithAsset(composition_);
  for (const int64_t time : {2399, 0, 1250, 310, 899, 650, 1199, 1799}) {
    expectPicture(*generator, time);
  }
}

TEST_F(CompositionPlaybackTest, InAGapThePictureIsTheLastOneBeforeIt) {
  append("h264_30.mp4", range(0, 300));
  const auto source = assets_["h264_30.mp4"]->tracksWithMediaType(AVMediaTypeVideo).front();
  ASSERT_TRUE(video_->insertTimeRange(range(1000, 300), source, at(500), nullptr));
  const auto generator = AVAssetImageGenerator::assetImageGeneratorWithAsset(composition_);
  for (const int64_t time : {300, 400, 499}) expectPicture(*generator, time);
  const auto behind = generator->copyCGImageAtTime(at(500), nullptr, nullptr);
  EXPECT_EQ(test::frameNumber(behind), 30);
}

TEST_F(CompositionPlaybackTest, InAGapAtTheBeginningThePictureIsTheFirstOneBehindIt) {
  append("h264_30.mp4", range(0, 300));
  const auto source = assets_["h264_30.mp4"]->tracksWithMediaType(AVMediaTypeVideo).front();
  const auto late = AVMutableComposition::create();
  ASSERT_TRUE(late->addMutableTrackWithMediaType(AVMediaTypeVideo, 0)
                  ->insertTimeRange(range(1000, 300), source, at(500), nullptr));
  const auto generator = AVAssetImageGenerator::assetImageGeneratorWithAsset(late);
  for (const int64_t time : {0, 250, 500}) {
    CMTime actual;
    const auto image = generator->copyCGImageAtTime(at(time), &actual, nullptr);
    EXPECT_EQ(test::frameNumber(image), 30) << time;
    EXPECT_EQ(actual, at(500)) << time;
  }
}

TEST_F(CompositionPlaybackTest, TimesThatACompositionHasNotHaveNoPicture) {
  append("h264_30.mp4", range(0, 300));
  const auto generator = AVAssetImageGenerator::assetImageGeneratorWithAsset(composition_);
  for (const CMTime time : {kCMTimeInvalid, at(301), kCMTimePositiveInfinity}) {
    NSErrorPtr error;
    EXPECT_FALSE(generator->copyCGImageAtTime(time, nullptr, &error));
    EXPECT_TRUE(error);
  }
  const auto empty =
      AVAssetImageGenerator::assetImageGeneratorWithAsset(AVMutableComposition::create());
  NSErrorPtr error;
  EXPECT_FALSE(empty->copyCGImageAtTime(kCMTimeZero, nullptr, &error));
  EXPECT_TRUE(error);
}

TEST_F(CompositionPlaybackTest, PicturesOfACompositionCanBeMade) {
  video_->setPreferredTransform({0, 1, -1, 0, 108, 0});
  appendCopies("h264_30.mp4", range(50, 900), 3);
  for (const auto& asset : {std::shared_ptr<AVAsset>(composition_), composition_->copy()}) {
    const auto generator = AVAssetImageGenerator::assetImageGeneratorWithAsset(asset);
    for (const int64_t time : {0, 400, 899, 900, 1300, 2699}) expectPicture(*generator, time);
    generator->setAppliesPreferredTrackTransform(true);
    const auto upright = generator->copyCGImageAtTime(at(1000), nullptr, nullptr);
    ASSERT_TRUE(upright);
    EXPECT_EQ(upright->width(), 108);
    EXPECT_EQ(upright->height(), 192);
  }
}

}  // namespace
}  // namespace zaffo
