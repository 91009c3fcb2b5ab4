// Loops of clips of all lengths and shapes: what the loader gives, and that it plays to its end.

#include <gmock/gmock.h>

#include "loading/LoopFixture.h"
#include "platform/foundation/NSNotificationCenter.h"

namespace zaffo {
namespace {

using Kind = PlayerManager::PlayerKind;

class LoopLengthTest : public LoopFixture {
 protected:
  /// Counts the ends of the item.
  std::shared_ptr<int> countEnds() {
    auto counter = std::make_shared<int>(0);
    NSNotificationCenter::defaultCenter().addObserver(
        counter, AVPlayerItemDidPlayToEndTimeNotification, item,
        [raw = counter.get()](const NSNotification&) { ++*raw; });
    return counter;
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
                                          {"loop_tone_pcm.mov", 0.9, 51 * 0.9 + 0.05}}) {
    ASSERT_TRUE(load(name)) << name;
    EXPECT_NEAR(loopSeconds, loop, 1e-6) << name;
    EXPECT_NEAR(totalSeconds, total, 1e-6) << name;
    EXPECT_NEAR(CMTimeGetSeconds(item->duration()), total, 1e-6) << name;
    EXPECT_TRUE(item->asset()->isPlayable()) << name;
    EXPECT_TRUE(item->asset()->isReadable()) << name;
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
  const auto sizeOf = [this](const char* name) {
    CGSize size;
    ZFLoopingVideoPlayerItemLoader::createWithURL(NSURL::fileURLWithPath(test::clip(name)))
        ->loadThumbnailWithPriority(0, {144, 144},
                                    [&size](const std::shared_ptr<const UIImage>& image,
                                            const std::shared_ptr<const NSError>&) {
                                      if (image)
                                        size = {static_cast<double>(image->cgImage()->width()),
                                                static_cast<double>(image->cgImage()->height())};
                                    });
    time.settle();
    return size;
  };
  EXPECT_EQ(sizeOf("portrait.mp4"), (CGSize{81, 144}));
  EXPECT_EQ(sizeOf("rotated_90.mp4"), (CGSize{144, 81}));
}

}  // namespace
}  // namespace zaffo
