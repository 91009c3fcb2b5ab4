// SPDX-License-Identifier: Apache-2.0
#include "companion/ZFVideo.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace zaffo {
namespace {

/// What an application has to implement, each in a base of its own so that one can be left out.
template <typename Base>
struct WithId : Base {
  std::string videoId() const override { return "42"; }
};
template <typename Base>
struct WithDuration : Base {
  CMTime itemDuration() const override { return kCMTimeZero; }
};
template <typename Base>
struct WithPause : Base {
  bool canPause() const override { return true; }
};
template <typename Base>
struct WithPlay : Base {
  bool canPlay() const override { return true; }
};
template <typename Base>
struct WithContent : Base {
  bool explicitContent() const override { return false; }
};
template <typename Base>
struct WithLoader : Base {
  bool canReuseAVPlayerItem() const override { return true; }
  ZFCancelCommandPtr loadAVPlayerItemWithOptions(AVPlayerItemLoaderOptions,
                                                 AVPlayerItemLoader::ItemCompletion) override {
    return nullptr;
  }
  ZFCancelCommandPtr loadThumbnailWithPriority(unsigned long, CGSize,
                                               AVPlayerItemLoader::ThumbnailCompletion) override {
    return nullptr;
  }
  ZFCancelCommandPtr preloadWithPriority(unsigned long,
                                         AVPlayerItemLoader::PreloadCompletion) override {
    return nullptr;
  }
};

using Complete = WithId<WithDuration<WithPause<WithPlay<WithContent<WithLoader<ZFVideo>>>>>>;

TEST(ZFVideo, IsItsOwnItemLoader) {
  EXPECT_TRUE(
      (std::is_convertible_v<std::shared_ptr<ZFVideo>, std::shared_ptr<AVPlayerItemLoader>>));
}

TEST(ZFVideo, RequiresEverythingButTheReports) {
  EXPECT_FALSE(std::is_abstract_v<Complete>);
  EXPECT_TRUE(
      (std::is_abstract_v<WithDuration<WithPause<WithPlay<WithContent<WithLoader<ZFVideo>>>>>>));
  EXPECT_TRUE((std::is_abstract_v<WithId<WithPause<WithPlay<WithContent<WithLoader<ZFVideo>>>>>>));
  EXPECT_TRUE(
      (std::is_abstract_v<WithId<WithDuration<WithPlay<WithContent<WithLoader<ZFVideo>>>>>>));
  EXPECT_TRUE(
      (std::is_abstract_v<WithId<WithDuration<WithPause<WithContent<WithLoader<ZFVideo>>>>>>));
  EXPECT_TRUE((std::is_abstract_v<WithId<WithDuration<WithPause<WithPlay<WithLoader<ZFVideo>>>>>>));
  EXPECT_TRUE(
      (std::is_abstract_v<WithId<WithDuration<WithPause<WithPlay<WithContent<ZFVideo>>>>>>));
}

TEST(ZFVideo, ReportsReachAVideoThatListensAndNobodyElse) {
  struct Reporting final : Complete {
    void handlePlaybackStoppedWithElapsedTime(double seconds) override { elapsed = seconds; }
    void reportNewPlayEvent() override { ++plays; }
    double elapsed = 0;
    int plays = 0;
  };
  Complete plain;
  Reporting reporting;
  for (ZFVideo* video : {static_cast<ZFVideo*>(&plain), static_cast<ZFVideo*>(&reporting)}) {
    video->reportNewPlayEvent();
    video->handlePlaybackStoppedWithElapsedTime(2.5);
  }
  EXPECT_EQ(reporting.plays, 1);
  EXPECT_EQ(reporting.elapsed, 2.5);
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
