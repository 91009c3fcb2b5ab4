// SPDX-License-Identifier: Apache-2.0
#include "cell/NativePlayback.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "doubles/ManualTime.h"
#include "doubles/ScriptedAVPlayerItem.h"
#include "doubles/ScriptedMutablePlayer.h"

namespace zaffo::feed {
namespace {

class NativePlaybackTest : public testing::Test {
 protected:
  NativePlaybackTest() {
    player_->item = item_;
    player_->view = UIView::create();
    playback_ = PagePlayback::create(
        player_, {.failed = [this](const std::string& reason) { reasons_.push_back(reason); },
                  .ended = [this] { ++ends_; }});
  }

  void post(const std::string& name, NSNotification::UserInfo userInfo = {}) {
    NSNotificationCenter::defaultCenter().postNotification(name, item_, std::move(userInfo));
    time_.settle();
  }
  void end() {
    player_->rateValue = 0;  // as at an item's end
    post(AVPlayerItemDidPlayToEndTimeNotification);
  }

  ManualTime time_;
  std::shared_ptr<ScriptedMutablePlayer> player_ = std::make_shared<ScriptedMutablePlayer>(
      "player", std::make_shared<std::vector<std::string>>());
  std::shared_ptr<ScriptedAVPlayerItem> item_ = std::make_shared<ScriptedAVPlayerItem>();
  std::shared_ptr<PagePlayback> playback_;
  std::vector<std::string> reasons_;
  int ends_ = 0;
};

TEST_F(NativePlaybackTest, IsWhatAPlayerThatIsNoFastOneGets) {
  EXPECT_TRUE(std::dynamic_pointer_cast<NativePlayback>(playback_));
}

TEST_F(NativePlaybackTest, PassesTheRateOn) {
  playback_->setRate(2);
  EXPECT_EQ(player_->rateValue, 2);
  playback_->setRate(0);
  EXPECT_EQ(player_->rateValue, 0);
}

TEST_F(NativePlaybackTest, SeeksExactlyAndTellsWhenThatIsDoneOrGivenUp) {
  int done = 0;
  for (const bool finished : {true, false}) {
    playback_->seek(CMTimeMake(3, 2), [&done] { ++done; });
    const auto& seek = player_->seeks.back();
    EXPECT_EQ(seek.time, CMTimeMake(3, 2));
    EXPECT_EQ(seek.toleranceBefore, kCMTimeZero);
    EXPECT_EQ(seek.toleranceAfter, kCMTimeZero);
    seek.completion(finished);
  }
  EXPECT_EQ(done, 2);
}

TEST_F(NativePlaybackTest, TellsOfTheEndOfItsItem) {
  end();
  EXPECT_EQ(ends_, 1);
}

TEST_F(NativePlaybackTest, TellsWhyItsItemFailed) {
  post(AVPlayerItemFailedToPlayToEndTimeNotification,
       {{AVPlayerItemFailedToPlayToEndTimeErrorKey,
         NSError::create("test", 1, {{NSLocalizedDescriptionKey, "damaged"}})}});
  EXPECT_THAT(reasons_, testing::ElementsAre("damaged"));
}

TEST_F(NativePlaybackTest, ARewindFromTheEndGoesOnAtTheRateThatIsSetByThen) {
  playback_->setRate(1);
  end();
  playback_->rewind();
  ASSERT_EQ(player_->seeks.size(), 1u);
  EXPECT_EQ(player_->seeks[0].time, kCMTimeZero);
  EXPECT_EQ(player_->rateValue, 0);
  playback_->setRate(2);
  player_->rateValue = 0;
  player_->seeks[0].completion(true);
  EXPECT_EQ(player_->rateValue, 2);
}

TEST_F(NativePlaybackTest, ARewindFromTheEndThatASeekTakesThePlaceOfGoesOnFromThere) {
  playback_->setRate(1);
  end();
  playback_->rewind();
  playback_->seek(CMTimeMake(1, 1), {});
  player_->seeks[0].completion(false);
  EXPECT_EQ(player_->rateValue, 0);
  player_->seeks[1].completion(true);
  EXPECT_EQ(player_->rateValue, 1);
}

TEST_F(NativePlaybackTest, ASeekFromTheEndOfAPageThatWasStoppedStartsNothing) {
  playback_->setRate(1);
  end();
  playback_->setRate(0);
  playback_->seek(CMTimeMake(1, 1), {});
  player_->seeks[0].completion(true);
  EXPECT_EQ(player_->rateValue, 0);
}

TEST_F(NativePlaybackTest, ASeekFromElsewhereLeavesTheRateToThePlayer) {
  playback_->setRate(1);
  end();
  playback_->rewind();
  player_->seeks[0].completion(true);
  player_->rateValue = 0;
  playback_->seek(CMTimeMake(1, 1), {});
  player_->seeks[1].completion(true);
  EXPECT_EQ(player_->rateValue, 0) << "which somebody else has stopped";
}

TEST_F(NativePlaybackTest, ARewindThatEndsAfterThePlaybackSetsNothingGoing) {
  playback_->setRate(1);
  end();
  playback_->rewind();
  playback_ = nullptr;
  player_->seeks[0].completion(true);
  EXPECT_EQ(player_->rateValue, 0);
}

}  // namespace
}  // namespace zaffo::feed
