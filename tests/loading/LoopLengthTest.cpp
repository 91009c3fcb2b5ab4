// SPDX-License-Identifier: Apache-2.0

// Loops of clips of all lengths and shapes: what the loader gives, and that it plays to its end.

#include <gmock/gmock.h>

#include "loading/LoopFixture.h"
#include "platform/avfoundation/AVAssetReader.h"
#include "platform/foundation/NSNotificationCenter.h"

namespace zaffo {
namespace {

using Kind = PlayerManager::PlayerKind;

class LoopLengthTest : public LoopFixture {
 protected:
  /// Counts the ends of the item.
  std::shared_ptr<int> countEnds(const char* how = AVPlayerItemDidPlayToEndTimeNotification) {
    auto counter = std::make_shared<int>(0);
    NSNotificationCenter::defaultCenter().addObserver(
        counter, how, item, [raw = counter.get()](const NSNotification&) { ++*raw; });
    return counter;
  }
  /// How much of the item is covered by its tracks of a kind: the time from zero to their end.
  double end(AVMediaType type) const {
    double latest = 0;
    for (const auto& track : item->asset()->tracksWithMediaType(type)) {
      if (CMTIMERANGE_IS_VALID(track->timeRange))
        latest = std::max(latest, CMTimeGetSeconds(CMTimeRangeGetEnd(track->timeRange)));
    }
    return latest;
  }
};

struct Length {
  const char* name;
  double loop;
  double total;
};

TEST_F(LoopLengthTest, TheLoaderTellsTheLengthOfARoundAndOfAll) {
  for (const auto& [name, loop, total] : {Length{"portrait.mp4", 2.9, 51 * 2.9 + 0.05},
                                          {"loop_6.5_s.mp4", 6.4, 26 * 6.4},
                                          {"loop_6.5_s.mov", 6.4, 166.45},
                                          {"loop_10_s.mp4", 9.9, 26 * 9.9},
                                          {"loop_1_s.mp4", 0.9, 51 * 0.9},
                                          {"loop_0.12_s.mp4", 0.02, 51 * 0.02},
                                          {"loop_tone_pcm.mov", 0.9, 51 * 0.9 + 0.05},
                                          {"loop_0.12_s.mov", 0.02, 51 * 0.02 + 0.05},
                                          {"loop_scrap_of_sound.mov", 0.9, 51 * 0.9},
                                          {"loop_long_sound.mov", 1.4, 51 * 0.95 + 0.05},
                                          {"loop_much_sound.mov", 3.1, 51 * 0.95 + 0.05}}) {
    ASSERT_TRUE(load(name)) << name;
    EXPECT_NEAR(loopSeconds, loop, 1e-6) << name;
    EXPECT_NEAR(totalSeconds, total, 1e-6) << name;
    EXPECT_NEAR(CMTimeGetSeconds(item->duration()), total, 1e-6) << name;
    EXPECT_TRUE(item->asset()->isPlayable()) << name;
    EXPECT_TRUE(item->asset()->isReadable()) << name;
  }
}

TEST_F(LoopLengthTest, SoundOfAnyLengthLeavesThePicturesCopiesEndToEnd) {
  for (const auto& [name, copies] : {std::pair{"loop_much_sound.mov", 51 * 0.95},
                                     {"loop_long_sound.mov", 51 * 0.95},
                                     {"loop_short_sound.mov", 51 * 0.9},
                                     {"loop_scrap_of_sound.mov", 51 * 0.9},
                                     {"loop_empty_sound.mov", 51 * 0.9},
                                     {"loop_0.12_s.mov", 51 * 0.02}}) {
    ASSERT_TRUE(load(name)) << name;
    EXPECT_NEAR(end(AVMediaTypeVideo), copies, 1e-6) << name;
    EXPECT_LE(end(AVMediaTypeAudio), copies + 0.05 + 1e-6) << name;
  }
}

TEST_F(LoopLengthTest, AClipOfATenthOfASecondOrLessIsNeverAnswered) {
  for (const char* name : {"loop_0.1_s.mp4", "loop_0.1_s.mov", "loop_0.04_s.mp4"}) {
    const auto held = std::make_shared<int>(0);
    bool called = false;
    ZFLoopingVideoPlayerItemLoader::createWithURL(NSURL::fileURLWithPath(test::clip(name)))
        ->loadAVPlayerItemWithOptions(
            {}, [&called, held](const auto&, double, double) { called = true; });
    time.advance(10 * kNanosecondsPerSecond);
    EXPECT_FALSE(called) << name;
    EXPECT_EQ(held.use_count(), 1) << name << ": nothing waits any more";
  }
}

TEST_F(LoopLengthTest, WhatIsNoVideoGivesNoItem) {
  for (const char* name : {"audio_only.m4a", "text.mp4", "empty.mp4", "missing.mp4"}) {
    loopSeconds = totalSeconds = -1;
    EXPECT_FALSE(load(name)) << name;
    EXPECT_EQ(loopSeconds, 0.0) << name;
    EXPECT_EQ(totalSeconds, 0.0) << name;
  }
}

TEST_F(LoopLengthTest, AClipWithoutSoundHasAMixWithoutParameters) {
  ASSERT_TRUE(load("video_only.mp4"));
  ASSERT_TRUE(item->audioMix());
  EXPECT_TRUE(item->audioMix()->inputParameters().empty());
  EXPECT_TRUE(item->asset()->tracksWithMediaType(AVMediaTypeAudio).empty());
}

class ShortLoopTest : public LoopLengthTest,
                      public testing::WithParamInterface<std::tuple<const char*, Kind>> {};

TEST_P(ShortLoopTest, PlaysToItsEndAndAgainFromItsStart) {
  ASSERT_TRUE(load(std::get<const char*>(GetParam())));
  ASSERT_TRUE(lend(std::get<Kind>(GetParam())));
  const auto ends = countEnds();
  // The whole item is less than what a fast player reads ahead at rest, and it tells of its end
  // each time that it comes upon it: at rest, and again when it plays.
  const int endsOfARun = std::get<Kind>(GetParam()) == Kind::Fast ? 2 : 1;
  ASSERT_TRUE(start());
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(shown(), 1) << "the only frame between 0.05 and 0.07 s, at " << seconds();
    time.advance(50 * kNanosecondsPerMillisecond);
  }
  time.advance(4 * kNanosecondsPerSecond);
  EXPECT_EQ(*ends, endsOfARun);
  player->seekToTime(kCMTimeZero, kCMTimeZero, kCMTimeZero, {});
  time.settle();
  ASSERT_TRUE(start());
  time.advance(4 * kNanosecondsPerSecond);
  EXPECT_EQ(*ends, 2 * endsOfARun);
}

INSTANTIATE_TEST_SUITE_P(JustLongerThanTheTrim, ShortLoopTest,
                         testing::Combine(testing::Values("loop_0.12_s.mp4", "loop_0.12_s.mov"),
                                          testing::Values(Kind::Native, Kind::Fast)));

class TornLoopTest : public LoopLengthTest, public testing::WithParamInterface<Kind> {
 protected:
  /// Where the pictures end that can be read of the clip.
  double readableSeconds(const char* name) {
    const auto asset = AVAsset::assetWithURL(NSURL::fileURLWithPath(test::clip(name)));
    asset->loadValuesAsynchronouslyForKeys({"tracks"}, [] {});
    time.settle();
    const auto reader = AVAssetReader::create(asset, nullptr);
    const auto output =
        AVAssetReaderTrackOutput::create(asset->tracksWithMediaType(AVMediaTypeVideo).front());
    reader->addOutput(output);
    EXPECT_TRUE(reader->startReading());
    double end = 0;
    while (const auto sample = output->copyNextSampleBuffer())
      end = std::max(end, CMTimeGetSeconds(sample->outputPresentationTimeStamp()) + 1 / 30.0);
    return end;
  }
};

TEST_P(TornLoopTest, FailsWhereItIsTorn) {
  const double torn = readableSeconds("cut_5.mp4") - kTrim;
  ASSERT_GT(torn, 1);
  ASSERT_TRUE(load("cut_5.mp4"));
  ASSERT_LT(torn, loopSeconds - 1);
  ASSERT_TRUE(lend(GetParam()));
  const auto failures = countEnds(AVPlayerItemFailedToPlayToEndTimeNotification);
  const auto ends = countEnds();
  ASSERT_TRUE(start());
  const double lead = static_cast<double>(TimeSource::now()) / 1e9 - seconds();
  while (*failures == 0 && seconds() < 2 * loopSeconds && player->rate() > 0)
    time.advance(10 * kNanosecondsPerMillisecond);
  time.settle();
  EXPECT_EQ(*failures, 1);
  EXPECT_EQ(*ends, 0);
  // A fast player counts the time to the tear from when it came upon it, which was at rest.
  const double before = GetParam() == Kind::Fast ? 0.35 : 0.05;
  const double failedAfter = static_cast<double>(TimeSource::now()) / 1e9 - lead;
  EXPECT_GE(failedAfter, torn - before);
  EXPECT_LE(failedAfter, torn + 0.05);
}

INSTANTIATE_TEST_SUITE_P(Players, TornLoopTest, testing::Values(Kind::Native, Kind::Fast));

class TurnedLoopTest : public LoopLengthTest, public testing::WithParamInterface<Kind> {};

TEST_P(TurnedLoopTest, IsShownUpright) {
  for (const auto& [name, turns] :
       {std::pair{"rotated_90.mp4", 1}, {"rotated_180.mp4", 2}, {"rotated_270.mp4", 3}}) {
    ASSERT_TRUE(load(name));
    ASSERT_TRUE(lend(GetParam()));
    player->outputView()->setFrame({{0, 0}, {256, 256}});
    player->outputView()->layoutIfNeeded();
    const auto now = layerPicture();
    ASSERT_TRUE(now) << name;
    EXPECT_EQ(now->quarterTurns, turns) << name;
    player.reset();
    manager->removeAllPlayers();
  }
}

INSTANTIATE_TEST_SUITE_P(Players, TurnedLoopTest, testing::Values(Kind::Native, Kind::Fast));

TEST_F(LoopLengthTest, TheThumbnailOfATurnedClipIsUpright) {
  constexpr int kWidth = 144, kHeight = 256;  // as the picture is coded
  for (const auto& [name, turns] : {std::pair{"portrait.mp4", 0},
                                    {"rotated_90.mp4", 1},
                                    {"rotated_180.mp4", 2},
                                    {"rotated_270.mp4", 3}}) {
    CGImagePtr image;
    ZFLoopingVideoPlayerItemLoader::createWithURL(NSURL::fileURLWithPath(test::clip(name)))
        ->loadThumbnailWithPriority(0, {256, 256},
                                    [&image](const auto& thumbnail, const auto& /*error*/) {
                                      if (thumbnail) image = thumbnail->cgImage();
                                    });
    time.settle();
    ASSERT_TRUE(image) << name;
    const bool lies = turns % 2 == 1;
    ASSERT_EQ(image->width(), lies ? kHeight : kWidth) << name;
    ASSERT_EQ(image->height(), lies ? kWidth : kHeight) << name;
    // A point of the coded picture, turned clockwise with it.
    const auto brightness = [&, turned = turns](int x, int y) -> double {
      const std::pair<int, int> places[] = {
          {x, y}, {kHeight - 1 - y, x}, {kWidth - 1 - x, kHeight - 1 - y}, {y, kWidth - 1 - x}};
      const auto [column, row] = places[turned];
      return image->pixels()[static_cast<std::size_t>(row) * image->stride() +
                             static_cast<std::size_t>(column) * 4 + 1];
    };
    EXPECT_EQ(test::readFrameNumber(kWidth, kHeight, brightness), 0) << name;
  }
}

}  // namespace
}  // namespace zaffo
