// SPDX-License-Identifier: Apache-2.0
#include "clip/ClipVideo.h"

#include <gtest/gtest.h>

#include "doubles/ManualTime.h"
#include "media/Clips.h"
#include "platform/foundation/NSThread.h"

namespace zaffo {
namespace {

constexpr const char* kTwoSeconds = "video_only.mp4";
constexpr const char* kOneFrame = "huge.mp4";  // too short to loop

class ClipVideoTest : public testing::Test {
 protected:
  static std::shared_ptr<ClipVideo> videoOf(const char* name,
                                            ClipVideo::Loop loop = ClipVideo::Loop::Endless) {
    return ClipVideo::create(NSURL::fileURLWithPath(test::clip(name)), loop);
  }

  void load(const std::shared_ptr<ClipVideo>& video) {
    command_ = video->loadAVPlayerItemWithOptions(
        {}, [this](const std::shared_ptr<AVPlayerItem>& item, double loopSeconds, double seconds) {
          EXPECT_TRUE(NSThread::isMainThread());
          ++completions_;
          item_ = item;
          loopSeconds_ = loopSeconds;
          seconds_ = seconds;
        });
    EXPECT_EQ(completions_, 0);
  }

  ManualTime time_;
  ZFCancelCommandPtr command_;
  int completions_ = 0;
  std::shared_ptr<AVPlayerItem> item_;
  double loopSeconds_ = -1, seconds_ = -1;
};

TEST_F(ClipVideoTest, PlaysOnceWhenItIsToldTo) {
  const auto video = videoOf(kTwoSeconds, ClipVideo::Loop::None);
  EXPECT_TRUE(CMTIME_IS_INDEFINITE(video->itemDuration()));
  load(video);
  time_.settle();
  ASSERT_TRUE(item_);
  EXPECT_EQ(completions_, 1);
  EXPECT_DOUBLE_EQ(seconds_, 2);
  EXPECT_EQ(video->itemDuration(), item_->duration());
}

TEST_F(ClipVideoTest, LoopsUnlessItIsToldOtherwise) {
  load(videoOf(kTwoSeconds));
  time_.settle();
  ASSERT_TRUE(item_);
  EXPECT_EQ(completions_, 1);
  EXPECT_NEAR(loopSeconds_, 1.9, 1e-6);
  EXPECT_GT(seconds_, 60);
}

TEST_F(ClipVideoTest, AClipTooShortToLoopIsPlayedOnceFromThenOn) {
  const auto video = videoOf(kOneFrame);
  for (int loads = 1; loads <= 2; ++loads) {
    load(video);
    time_.settle();
    ASSERT_TRUE(item_);
    EXPECT_EQ(std::exchange(completions_, 0), 1);
    EXPECT_LT(seconds_, 0.1);
  }
}

TEST_F(ClipVideoTest, WhatIsNoVideoGivesNoItem) {
  for (const auto loop : {ClipVideo::Loop::None, ClipVideo::Loop::Endless}) {
    load(videoOf("text.mp4", loop));
    time_.settle();
    EXPECT_EQ(std::exchange(completions_, 0), 1);
    EXPECT_FALSE(item_);
  }
}

TEST_F(ClipVideoTest, ACancelledLoadCompletesNothingAndHoldsNothing) {
  for (const char* name : {kTwoSeconds, kOneFrame}) {
    const auto video = videoOf(name);
    load(video);
    command_->cancel();
    time_.settle();
    command_ = nullptr;
    EXPECT_EQ(completions_, 0);
    EXPECT_EQ(video.use_count(), 1);
  }
}

TEST_F(ClipVideoTest, TheAddressAndTheKindOfLoopMakeTheId) {
  const auto video = videoOf(kTwoSeconds);
  EXPECT_EQ(video->videoId(), videoOf(kTwoSeconds)->videoId());
  EXPECT_NE(video->videoId(), videoOf(kTwoSeconds, ClipVideo::Loop::None)->videoId());
  EXPECT_NE(video->videoId(), videoOf(kOneFrame)->videoId());
  EXPECT_TRUE(video->canReuseAVPlayerItem());
}

TEST_F(ClipVideoTest, ItsThumbnailIsThatOfTheClip) {
  int thumbnails = 0;
  videoOf(kTwoSeconds)
      ->loadThumbnailWithPriority(
          0, {90, 160}, [&](const std::shared_ptr<const UIImage>& image, const NSErrorPtr& error) {
            EXPECT_TRUE(image);
            EXPECT_FALSE(error);
            ++thumbnails;
          });
  time_.settle();
  EXPECT_EQ(thumbnails, 1);
}

}  // namespace
}  // namespace zaffo
