#include "companion/ZFVideo.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace zaffo {
namespace {

/// A video that fulfils what is required and nothing that is optional.
class PlainVideo : public ZFVideo {
 public:
  std::string videoId() const override { return "42"; }
  CMTime itemDuration() const override { return CMTime{}; }
  bool canPause() const override { return true; }
  bool canPlay() const override { return true; }
  bool explicitContent() const override { return false; }
  bool canReuseAVPlayerItem() const override { return true; }

  ZFCancelCommandPtr loadAVPlayerItemWithOptions(AVPlayerItemLoaderOptions options,
                                                 ItemCompletion completeBlock) override {
    lastOptions = options;
    if (completeBlock) completeBlock(nullptr, 0, 0);
    return ZFNoopCancelCommand::sharedInstance();
  }
  ZFCancelCommandPtr loadThumbnailWithPriority(unsigned long, CGSize,
                                               ThumbnailCompletion completion) override {
    if (completion) completion(nullptr, nullptr);
    return ZFNoopCancelCommand::sharedInstance();
  }
  ZFCancelCommandPtr preloadWithPriority(unsigned long, PreloadCompletion) override {
    return ZFNoopCancelCommand::sharedInstance();
  }

  AVPlayerItemLoaderOptions lastOptions;
};

/// One that listens to what is optional too.
class ReportingVideo final : public PlainVideo {
 public:
  void handlePlaybackStoppedWithElapsedTime(double seconds) override { elapsed = seconds; }
  void reportNewPlayEvent() override { ++plays; }

  double elapsed = 0;
  int plays = 0;
};

TEST(ZFVideo, IsItsOwnItemLoader) {
  const auto video = std::make_shared<PlainVideo>();
  const std::shared_ptr<AVPlayerItemLoader> loader = video;
  bool completed = false;
  const auto command = loader->loadAVPlayerItemWithOptions(
      AVPlayerItemLoaderOptions::fadeIn,
      [&](const std::shared_ptr<AVPlayerItem>& item, double loop, double total) {
        completed = !item && loop == 0 && total == 0;
      });
  EXPECT_TRUE(completed);
  EXPECT_EQ(video->lastOptions, AVPlayerItemLoaderOptions::fadeIn);
  EXPECT_EQ(command, ZFNoopCancelCommand::sharedInstance());
  EXPECT_TRUE(loader->canReuseAVPlayerItem());
}

TEST(ZFVideo, NeedsNoAnswerToTheOptionalReports) {
  PlainVideo plain;
  ReportingVideo reporting;
  for (ZFVideo* video : {static_cast<ZFVideo*>(&plain), static_cast<ZFVideo*>(&reporting)}) {
    video->reportNewPlayEvent();
    video->handlePlaybackStoppedWithElapsedTime(2.5);
  }
  EXPECT_EQ(reporting.plays, 1);
  EXPECT_EQ(reporting.elapsed, 2.5);
}

TEST(ZFVideo, TakesEmptyCompletions) {
  PlainVideo video;
  EXPECT_TRUE(video.loadAVPlayerItemWithOptions({}, nullptr));
  EXPECT_TRUE(video.loadThumbnailWithPriority(0, CGSize{}, nullptr));
  EXPECT_TRUE(video.preloadWithPriority(0, nullptr));
}

TEST(AVPlayerItemLoaderOptions, AreEmptyUnlessGiven) {
  EXPECT_EQ(AVPlayerItemLoaderOptions().rawValue(), 0U);
  EXPECT_EQ(AVPlayerItemLoaderOptions(), AVPlayerItemLoaderOptions(0));
  EXPECT_FALSE(AVPlayerItemLoaderOptions().contains(AVPlayerItemLoaderOptions::fadeIn));
}

TEST(AVPlayerItemLoaderOptions, FadeInIsBitOne) {
  EXPECT_EQ(AVPlayerItemLoaderOptions::fadeIn.rawValue(), 2U);
}

TEST(AVPlayerItemLoaderOptions, AreEqualWhenTheirWordsAre) {
  EXPECT_EQ(AVPlayerItemLoaderOptions(2), AVPlayerItemLoaderOptions::fadeIn);
  EXPECT_NE(AVPlayerItemLoaderOptions(3), AVPlayerItemLoaderOptions::fadeIn);
  EXPECT_NE(AVPlayerItemLoaderOptions(1), AVPlayerItemLoaderOptions(0));
}

TEST(AVPlayerItemLoaderOptions, UniteAndContain) {
  const auto united = AVPlayerItemLoaderOptions(5) | AVPlayerItemLoaderOptions::fadeIn;
  EXPECT_EQ(united.rawValue(), 7U);
  EXPECT_TRUE(united.contains(AVPlayerItemLoaderOptions::fadeIn));
  EXPECT_TRUE(united.contains(AVPlayerItemLoaderOptions(5)));
  EXPECT_TRUE(united.contains(AVPlayerItemLoaderOptions())) << "the empty set is in every set";
  EXPECT_FALSE(AVPlayerItemLoaderOptions(1).contains(united));
}

TEST(AVPlayerItemLoaderOptions, KeepEveryBitOfTheWord) {
  using Word = AVPlayerItemLoaderOptions::RawValue;
  static_assert(std::is_unsigned_v<Word>);
  EXPECT_EQ(AVPlayerItemLoaderOptions(~Word{0}).rawValue(), ~Word{0});
}

}  // namespace
}  // namespace zaffo
