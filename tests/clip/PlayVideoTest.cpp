// SPDX-License-Identifier: Apache-2.0
#include "clip/PlayVideo.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "clip/ClipVideo.h"
#include "doubles/ManualTime.h"
#include "doubles/ScriptedAVPlayerItem.h"
#include "doubles/ScriptedMutablePlayer.h"
#include "media/Clips.h"
#include "platform/foundation/NSThread.h"
#include "pool/PlayerDecorator.h"

namespace zaffo {
namespace {

/// A video whose loader answers when a test says.
class ScriptedVideo final : public ZFVideo {
 public:
  explicit ScriptedVideo(std::string id) : id_(std::move(id)) {}

  std::string videoId() const override { return id_; }
  CMTime itemDuration() const override { return kCMTimeIndefinite; }
  bool canPause() const override { return true; }
  bool canPlay() const override { return true; }
  bool explicitContent() const override { return false; }
  bool canReuseAVPlayerItem() const override { return true; }
  ZFCancelCommandPtr loadAVPlayerItemWithOptions(AVPlayerItemLoaderOptions,
                                                 ItemCompletion completion) override {
    ++loads;
    itemCompletion = std::move(completion);
    return std::make_shared<ZFCallbackCancelCommand>([this] { ++cancels; });
  }
  ZFCancelCommandPtr loadThumbnailWithPriority(unsigned long, CGSize,
                                               ThumbnailCompletion completion) override {
    thumbnailCompletion = std::move(completion);
    return std::make_shared<ZFCallbackCancelCommand>([this] { ++cancels; });
  }
  ZFCancelCommandPtr preloadWithPriority(unsigned long, PreloadCompletion) override {
    return ZFNoopCancelCommand::sharedInstance();
  }

  int loads = 0, cancels = 0;
  ItemCompletion itemCompletion;
  ThumbnailCompletion thumbnailCompletion;

 private:
  const std::string id_;
};

class PlayVideoTest : public testing::Test {
 protected:
  void ask() {
    command_ = play(pool_, video_, [this](const PlayerLoadResult& result) {
      EXPECT_TRUE(NSThread::isMainThread());
      ++completions_;
      handle_ = result.player();
      error_ = result.error();
      rateInside_ = player_ ? player_->rateValue : 0;
    });
  }
  /// The loader's answer, on a worker as a real one's.
  void giveItem(const std::shared_ptr<AVPlayerItem>& item) {
    dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT),
                   [item, completion = std::exchange(video_->itemCompletion, nullptr)] {
                     completion(item, 2, 2);
                   });
    time_.settle();
  }

  ManualTime time_;
  std::shared_ptr<ScriptedMutablePlayer> player_;
  std::shared_ptr<PlayerManager> pool_ = PlayerManager::create([this](PlayerManager::PlayerKind) {
    player_ = std::make_shared<ScriptedMutablePlayer>("player",
                                                      std::make_shared<std::vector<std::string>>());
    return player_;
  });
  std::shared_ptr<ScriptedVideo> video_ = std::make_shared<ScriptedVideo>("video");
  const std::shared_ptr<ScriptedAVPlayerItem> item_ = std::make_shared<ScriptedAVPlayerItem>();
  ZFCancelCommandPtr command_;
  int completions_ = 0;
  std::shared_ptr<PlayerDecorator> handle_;
  NSErrorPtr error_;
  float rateInside_ = -1;
};

TEST_F(PlayVideoTest, LoadsTheItemAndThePlayerAndSetsItGoing) {
  ask();
  giveItem(item_);
  ASSERT_TRUE(player_);
  EXPECT_EQ(player_->item, item_);
  EXPECT_EQ(completions_, 0);
  player_->finishPendingLoad(nullptr);
  EXPECT_EQ(completions_, 1);
  EXPECT_TRUE(handle_);
  EXPECT_EQ(rateInside_, 1);
}

TEST_F(PlayVideoTest, AVideoThatThePoolHoldsPlaysInsideTheCall) {
  ask();
  giveItem(item_);
  player_->finishPendingLoad(nullptr);
  handle_->setRate(0);
  handle_ = nullptr;
  ask();
  EXPECT_EQ(completions_, 2);
  EXPECT_EQ(rateInside_, 1);
  EXPECT_EQ(video_->loads, 1);
}

TEST_F(PlayVideoTest, TheThumbnailTellsWhyThereIsNoItem) {
  ask();
  giveItem(nullptr);
  ASSERT_TRUE(video_->thumbnailCompletion);
  const NSErrorPtr reason = makePlayerError("no such file");
  video_->thumbnailCompletion(nullptr, reason);
  EXPECT_EQ(completions_, 0) << "not on the loader's thread";
  time_.settle();
  EXPECT_EQ(completions_, 1);
  EXPECT_EQ(error_, reason);
}

TEST_F(PlayVideoTest, ALoaderThatLetsGoOfItsBlockHasNoItem) {
  ask();
  video_->itemCompletion = nullptr;
  time_.settle();
  ASSERT_TRUE(video_->thumbnailCompletion);
  video_->thumbnailCompletion(std::make_shared<const UIImage>(nullptr), nullptr);
  time_.settle();
  ASSERT_TRUE(error_);
  EXPECT_EQ(error_->localizedDescription(), "Nothing that can be played can be made of this video");
}

TEST_F(PlayVideoTest, ThePlayersOwnErrorIsPassedOn) {
  ask();
  giveItem(item_);
  const NSErrorPtr reason = makePlayerError("no decoder");
  player_->finishPendingLoad(reason);
  EXPECT_EQ(error_, reason);
  EXPECT_FALSE(handle_);
}

TEST_F(PlayVideoTest, TakesNoPlayerFromItsUsers) {
  pool_->setMaxPlayersAtIdleState(1);
  ask();
  giveItem(item_);
  player_->finishPendingLoad(nullptr);
  const auto first = std::exchange(handle_, nullptr);
  video_ = std::make_shared<ScriptedVideo>("other");
  ask();
  giveItem(std::make_shared<ScriptedAVPlayerItem>());
  ASSERT_TRUE(error_);
  EXPECT_EQ(error_->localizedDescription(), "No player available for this video");
  EXPECT_EQ(first->playerItem(), item_);
}

TEST_F(PlayVideoTest, ACancelledRequestIsNeverToldAtWhateverMoment) {
  ask();
  command_->cancel();
  EXPECT_EQ(video_->cancels, 1);
  giveItem(item_);
  EXPECT_FALSE(player_);

  ask();
  giveItem(nullptr);
  command_->cancel();
  video_->thumbnailCompletion(nullptr, makePlayerError("late"));
  time_.settle();

  ask();
  giveItem(item_);
  command_->cancel();
  EXPECT_FALSE(player_->isLoading());
  EXPECT_EQ(completions_, 0);
  EXPECT_EQ(pool_->playerState(video_), PlayerState::NotLoaded);
}

TEST_F(PlayVideoTest, IsNotToldWhenThePoolIsGone) {
  ask();
  pool_ = nullptr;
  giveItem(item_);
  EXPECT_EQ(completions_, 0);
}

TEST_F(PlayVideoTest, HoldsNothingOnceItIsOver) {
  ask();
  giveItem(item_);
  player_->finishPendingLoad(nullptr);
  handle_ = nullptr;
  pool_->removeAllPlayers();
  video_->itemCompletion = nullptr;
  EXPECT_EQ(video_.use_count(), 1) << "though the command is kept";
}

TEST_F(PlayVideoTest, TheCompletionMayLetGoOfEverything) {
  command_ = play(pool_, video_, [this](const PlayerLoadResult& result) {
    EXPECT_TRUE(result.player());
    ++completions_;
    pool_ = nullptr;
    video_ = nullptr;
    command_ = nullptr;
  });
  giveItem(item_);
  const auto player = std::exchange(player_, nullptr);
  player->finishPendingLoad(nullptr);
  time_.settle();
  EXPECT_EQ(completions_, 1);
  EXPECT_EQ(player.use_count(), 1);
}

TEST_F(PlayVideoTest, WithoutACompletionNothingIsLoaded) {
  play(pool_, video_, nullptr)->cancel();
  EXPECT_EQ(video_->loads, 0);
}

/// With the library's own players and clips.
class PlayClipTest : public testing::Test {
 protected:
  PlayerLoadResult playClip(const char* name) {
    std::vector<PlayerLoadResult> results;
    play(pool_, ClipVideo::create(NSURL::fileURLWithPath(test::clip(name))),
         [&](const PlayerLoadResult& result) { results.push_back(result); });
    time_.settle();
    EXPECT_EQ(results.size(), 1u);
    return results.at(0);
  }

  ManualTime time_;
  const std::shared_ptr<PlayerManager> pool_ = PlayerManager::create();
};

TEST_F(PlayClipTest, AClipPlays) {
  const auto handle = playClip("video_only.mp4").player();
  ASSERT_TRUE(handle);
  time_.advance(3 * kNanosecondsPerSecond);
  EXPECT_GT(CMTimeGetSeconds(handle->currentTime()), 2.5) << "beyond the clip's own end";
  handle->setRate(0);
}

TEST_F(PlayClipTest, WhatIsWrongWithAFileIsTold) {
  const auto missing = playClip("missing.mp4").error(), text = playClip("text.mp4").error();
  ASSERT_TRUE(missing && text);
  EXPECT_NE(missing->localizedDescription(), text->localizedDescription());
  EXPECT_NE(missing->localizedDescription().find("missing.mp4"), std::string::npos);
}

}  // namespace
}  // namespace zaffo
