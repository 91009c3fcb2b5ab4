// SPDX-License-Identifier: Apache-2.0
#include "fast/PlayerFast.h"

#include "doubles/BusyPool.h"
#include "fast/FastTest.h"
#include "fast/PlayerFastOutputView.h"

namespace zaffo {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Status = AVQueuedSampleBufferRenderingStatus;

class PlayerFastTest : public FastTest {
 protected:
  /// What a load was told: "" for success, else domain, code and description.
  using Reports = std::vector<std::string>;

  PlayerFastTest() {
    giveSamples(100);
    scriptReader = [this, giving = scriptReader](ScriptedAssetReader& reader) {
      giving(reader);
      reader.onCancel = [this, layer = std::weak_ptr(layers.back())] {
        const auto shown = layer.lock();
        cancelledBy.push_back(shown && shown->queue()->isCurrent() ? "stop" : "release");
      };
    };
  }

  /// What the player's end still puts on queues is over before the script goes.
  void TearDown() override {
    player = nullptr;
    FastTest::TearDown();
  }

  static MutablePlayer::LoadCompletion into(Reports& reports) {
    return [&reports](const NSErrorPtr& error) {
      reports.push_back(error ? error->domain() + " " + std::to_string(error->code()) + " " +
                                    error->localizedDescription()
                              : "");
    };
  }

  std::shared_ptr<ScriptedAVPlayerItem> anotherItem() {
    return std::make_shared<ScriptedAVPlayerItem>(asset);
  }

  void load() {
    const Transcript silence;
    player->loadPlayerItem(item, nullptr);
    time.settle();
  }

  [[nodiscard]] std::shared_ptr<PlayerFastOutputView> view() const {
    return std::dynamic_pointer_cast<PlayerFastOutputView>(player->outputView());
  }

  /// By what the readers were cancelled: a session that is stopped does that on its own queue, one
  /// that is merely let go of where that happens.
  std::vector<std::string> cancelledBy;
  std::shared_ptr<PlayerFast> player = PlayerFast::create(factory());
  Reports reports;
};

TEST_F(PlayerFastTest, WithoutAnItemItAnswersWithNeutralValues) {
  EXPECT_EQ(player->rate(), 0);
  player->setRate(1);
  EXPECT_EQ(player->rate(), 0);
  EXPECT_EQ(player->currentTime(), kCMTimeZero);
  player->setCurrentTime(seconds(1));
  EXPECT_EQ(player->currentTime(), kCMTimeZero);
  EXPECT_EQ(player->playerItem(), nullptr);
  ASSERT_NE(view(), nullptr);
  EXPECT_EQ(view()->sampleBufferDisplayerLayer(), nullptr);
}

TEST_F(PlayerFastTest, KeepsItsVolumeWithoutUsingIt) {
  EXPECT_EQ(player->volume(), 1.0f);
  player->setVolume(0.3f);
  EXPECT_EQ(player->volume(), 0.3f);
  load();
  player->teardownPlayerItem();
  EXPECT_EQ(player->volume(), 0.3f);
}

TEST_F(PlayerFastTest, ALoadIsReportedFromTheMainQueueAndNeverInsideTheCall) {
  player->loadPlayerItem(item, into(reports));
  EXPECT_THAT(reports, IsEmpty());
  EXPECT_EQ(player->playerItem(), nullptr) << "not before its report";
  time.settle();
  EXPECT_THAT(reports, ElementsAre(""));
  EXPECT_EQ(player->playerItem(), item);
  EXPECT_EQ(view()->sampleBufferDisplayerLayer(), layers.front());
  EXPECT_EQ(player->rate(), 0);
}

TEST_F(PlayerFastTest, TheItemIsThereWhenTheLoadIsReported) {
  bool wasThere = false;
  player->loadPlayerItem(item, [&](const NSErrorPtr&) {
    wasThere = player->playerItem() == item && view()->sampleBufferDisplayerLayer() != nullptr;
  });
  time.settle();
  EXPECT_TRUE(wasThere);
}

TEST_F(PlayerFastTest, PassesRateAndTimeToItsSession) {
  load();
  player->setRate(0.5f);
  EXPECT_EQ(player->rate(), 0.5f);
  EXPECT_EQ(lastTimebase.lock()->rate(), 0.5);
  time.advance(kNanosecondsPerSecond);
  EXPECT_EQ(player->currentTime(), seconds(0.5));
}

TEST_F(PlayerFastTest, EveryFailureToStartIsReportedAndLeavesNoItem) {
  hasClock = false;
  clockStatus = 5;
  player->loadPlayerItem(item, into(reports));
  time.settle();
  hasClock = true;
  hasTimebase = false;
  timebaseStatus = 6;
  player->loadPlayerItem(item, into(reports));
  time.settle();
  hasTimebase = true;
  readerError = NSError::create("platform", 3, {{NSLocalizedDescriptionKey, "gone"}});
  player->loadPlayerItem(item, into(reports));
  time.settle();
  EXPECT_THAT(reports,
              ElementsAre("com.zaffoapp.app 5 Failed to create Audio Clock",
                          "com.zaffoapp.app 6 Failed to create timebase", "platform 3 gone"));
  EXPECT_EQ(player->playerItem(), nullptr);
  EXPECT_EQ(view()->sampleBufferDisplayerLayer(), nullptr);
}

TEST_F(PlayerFastTest, ALoadWorksWithoutACompletion) {
  load();
  EXPECT_EQ(player->playerItem(), item);
  readerError = NSError::create("platform", 3);
  load();
  EXPECT_EQ(player->playerItem(), nullptr);
}

TEST_F(PlayerFastTest, ACancelledLoadIsNotReportedAndItsSessionIsStopped) {
  const auto command = player->loadPlayerItem(item, into(reports));
  command->cancel();
  time.settle();
  EXPECT_THAT(reports, IsEmpty());
  EXPECT_EQ(player->playerItem(), nullptr);
  EXPECT_THAT(cancelledBy, ElementsAre("stop"));
  EXPECT_EQ(item.use_count(), 1) << "the session has gone";
}

TEST_F(PlayerFastTest, ACancelledLoadThatFailsIsNotReported) {
  readerError = NSError::create("platform", 3);
  player->loadPlayerItem(item, into(reports))->cancel();
  time.settle();
  EXPECT_THAT(reports, IsEmpty());
}

TEST_F(PlayerFastTest, CancellingALoadThatHasEndedDoesNothing) {
  const auto command = player->loadPlayerItem(item, into(reports));
  time.settle();
  command->cancel();
  time.settle();
  EXPECT_THAT(reports, ElementsAre(""));
  EXPECT_EQ(player->playerItem(), item);
}

TEST_F(PlayerFastTest, ASecondLoadCancelsOneThatIsPending) {
  Reports first;
  const auto second = anotherItem();
  player->loadPlayerItem(item, into(first));
  player->loadPlayerItem(second, into(reports));
  time.settle();
  EXPECT_THAT(first, IsEmpty());
  EXPECT_THAT(reports, ElementsAre(""));
  EXPECT_EQ(player->playerItem(), second);
  EXPECT_THAT(cancelledBy, ElementsAre("stop"));
  EXPECT_EQ(view()->sampleBufferDisplayerLayer(), layers.back());
}

TEST_F(PlayerFastTest, ANewLoadReplacesTheOldSessionAtOnce) {
  load();
  const auto second = anotherItem();
  player->loadPlayerItem(second, into(reports));
  EXPECT_EQ(player->playerItem(), nullptr);
  EXPECT_EQ(view()->sampleBufferDisplayerLayer(), nullptr);
  time.settle();
  EXPECT_THAT(cancelledBy, ElementsAre("stop"));
  EXPECT_EQ(player->playerItem(), second);
}

TEST_F(PlayerFastTest, ANewLoadThatFailsLeavesNoItem) {
  load();
  readerError = NSError::create("platform", 3);
  player->loadPlayerItem(anotherItem(), nullptr);
  time.settle();
  EXPECT_EQ(player->playerItem(), nullptr);
}

TEST_F(PlayerFastTest, ALoadHoldsThePlayerOnlyWeaklyAndIsAbandonedWithIt) {
  player->loadPlayerItem(item, into(reports));
  EXPECT_EQ(player.use_count(), 1);
  player.reset();
  time.settle();
  EXPECT_THAT(reports, IsEmpty());
  EXPECT_THAT(cancelledBy, ElementsAre("stop"));
  EXPECT_EQ(item.use_count(), 1);
}

TEST_F(PlayerFastTest, ALoadHoldsItsCompletionNoMoreOnceItHasEnded) {
  const auto token = std::make_shared<int>(1);
  player->loadPlayerItem(item, [token](const NSErrorPtr&) {});
  time.settle();
  EXPECT_EQ(token.use_count(), 1);
}

// Seeks and observers

TEST_F(PlayerFastTest, ASeekWithoutAnItemNeverCallsItsCompletion) {
  bool called = false;
  player->seekToTime(seconds(1), kCMTimeZero, kCMTimeZero, [&](bool) { called = true; });
  time.advance(kNanosecondsPerSecond);
  EXPECT_FALSE(called);
}

TEST_F(PlayerFastTest, ASeekIsToldOfFailuresAlone) {
  load();
  std::vector<bool> told;
  bool onQueue = false;
  const auto completion = [&](bool finished) {
    told.push_back(finished);
    onQueue = layers.front()->queue()->isCurrent();
  };
  player->seekToTime(seconds(1), kCMTimeZero, kCMTimeZero, completion);
  time.advance(kNanosecondsPerSecond);
  EXPECT_EQ(player->currentTime(), seconds(1));
  EXPECT_THAT(told, IsEmpty());
  readerError = NSError::create("platform", 3);
  player->seekToTime(seconds(2), kCMTimeZero, kCMTimeZero, completion);
  time.settle();
  EXPECT_THAT(told, ElementsAre(false));
  EXPECT_TRUE(onQueue);
}

TEST_F(PlayerFastTest, ASeekIgnoresItsTolerancesAndMayHaveNoCompletion) {
  load();
  player->seekToTime(seconds(1), kCMTimePositiveInfinity, kCMTimePositiveInfinity, nullptr);
  time.settle();
  EXPECT_EQ(CMTimeCompare(readers.back()->timeRange.start, seconds(1)), 0);
  readerError = NSError::create("platform", 3);
  player->seekToTime(seconds(2), kCMTimeZero, kCMTimeZero, nullptr);
  time.settle();
}

TEST_F(PlayerFastTest, SettingTheTimeSeeks) {
  load();
  player->setCurrentTime(seconds(2.5));
  time.settle();
  EXPECT_EQ(player->currentTime(), seconds(2.5));
  EXPECT_EQ(readers.size(), 2u);
}

TEST_F(PlayerFastTest, TimeObserversNeverFire) {
  load();
  int calls = 0;
  const auto handler = [&](CMTime) { ++calls; };
  const auto boundary = player->addTimeObserver(std::vector{kCMTimeZero, seconds(0.5)}, handler);
  const auto periodic = player->addTimeObserver(seconds(0.1), handler);
  EXPECT_EQ(boundary, ZFNoopCancelCommand::sharedInstance());
  EXPECT_EQ(periodic, ZFNoopCancelCommand::sharedInstance());
  player->setRate(1);
  time.advance(kNanosecondsPerSecond);
  periodic->cancel();
  boundary->cancel();
  time.advance(kNanosecondsPerSecond);
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(player->rate(), 1);
}

// Teardown

TEST_F(PlayerFastTest, TeardownStopsTheSessionAndTakesTheLayerOut) {
  for (const auto teardown : {&MutablePlayer::teardownPlayerItem, &MutablePlayer::fullTeardown}) {
    cancelledBy.clear();
    load();
    const auto sameView = player->outputView();
    ((*player).*teardown)();
    EXPECT_EQ(player->playerItem(), nullptr);
    EXPECT_EQ(view()->sampleBufferDisplayerLayer(), nullptr);
    EXPECT_EQ(layers.back()->superlayer(), nullptr);
    time.settle();
    EXPECT_THAT(cancelledBy, ElementsAre("stop"));
    EXPECT_EQ(item.use_count(), 1);
    EXPECT_EQ(player->outputView(), sameView) << "the view stays";
  }
}

TEST_F(PlayerFastTest, TeardownDoesNotEndALoadUnderWay) {
  player->loadPlayerItem(item, into(reports));
  player->teardownPlayerItem();
  time.settle();
  EXPECT_THAT(reports, ElementsAre(""));
  EXPECT_EQ(player->playerItem(), item);
}

TEST_F(PlayerFastTest, CanLoadAgainAfterATeardown) {
  load();
  player->teardownPlayerItem();
  load();
  EXPECT_EQ(player->playerItem(), item);
}

TEST_F(PlayerFastTest, AReleasedPlayerStopsItsSessionAndEmptiesItsView) {
  load();
  const auto view = this->view();
  player->setRate(1);
  player.reset();
  EXPECT_EQ(view->sampleBufferDisplayerLayer(), nullptr);
  time.settle();
  EXPECT_THAT(cancelledBy, ElementsAre("stop"));
  EXPECT_EQ(item.use_count(), 1);
  EXPECT_EQ(layers.front().use_count(), 1);
}

TEST_F(PlayerFastTest, NothingHoldsALoadedPlayer) {
  load();
  player->setRate(1);
  player->setCurrentTime(seconds(1));
  EXPECT_EQ(player.use_count(), 1);
}

// Failure of the session

TEST_F(PlayerFastTest, AFailureOfTheLayerDropsTheItemAndSaysSo) {
  load();
  Transcript transcript;
  layers.front()->changeStatus(
      Status::Failed, NSError::create("decoder", 9, {{NSLocalizedDescriptionKey, "bad data"}}));
  time.settle();
  EXPECT_THAT(transcript.lines(),
              Contains("PlayerFast: Error with PlaybackSession (Error Domain=decoder Code=9 \"bad "
                       "data\"). Player needs to be re-loaded again."));
  EXPECT_EQ(player->playerItem(), nullptr);
  EXPECT_EQ(view()->sampleBufferDisplayerLayer(), nullptr);
  EXPECT_EQ(layers.front()->superlayer(), nullptr);
  EXPECT_EQ(item.use_count(), 1);
  load();
  EXPECT_EQ(player->playerItem(), item);
}

TEST_F(PlayerFastTest, ASeekThatComesBehindAFailureIsStoppedWithTheSession) {
  load();
  {
    const BusyPool busy;  // the seek is queued before the failure is told
    layers.front()->changeStatus(Status::Failed, NSError::create("decoder", 9));
    player->setCurrentTime(seconds(1));
  }
  time.settle();
  ASSERT_EQ(readers.size(), 2u);
  EXPECT_THAT(cancelledBy, ElementsAre("stop", "stop"));
  EXPECT_EQ(item.use_count(), 1);
}

TEST_F(PlayerFastTest, AFailureOfASessionThatIsNoLongerCurrentIsIgnored) {
  load();
  const auto oldLayer = layers.front();
  const auto second = anotherItem();
  player->loadPlayerItem(second, nullptr);
  Transcript transcript;
  oldLayer->changeStatus(Status::Failed, NSError::create("decoder", 9));
  time.settle();
  EXPECT_THAT(transcript.lines(), Each(Not(HasSubstr("PlayerFast"))));
  EXPECT_EQ(player->playerItem(), second);
}

TEST_F(PlayerFastTest, AFailureWithoutACurrentSessionIsIgnored) {
  const auto session = PlaybackSession::create(item, factory());
  Transcript transcript;
  player->playbackSession(session, NSError::create("d", 1));
  time.settle();
  EXPECT_THAT(transcript.lines(), IsEmpty());
}

TEST_F(PlayerFastTest, AfterAFailureItAnswersWithNeutralValuesEvenBeforeTheMainThreadsTurn) {
  load();
  player->setRate(1);
  layers.front()->changeStatus(Status::Failed, NSError::create("decoder", 9));
  dispatch_wait_until_idle();
  EXPECT_EQ(player->playerItem(), nullptr);
  EXPECT_EQ(player->rate(), 0);
  EXPECT_NE(view()->sampleBufferDisplayerLayer(), nullptr) << "layers move on the main thread only";
  time.settle();
  EXPECT_EQ(view()->sampleBufferDisplayerLayer(), nullptr);
}

TEST_F(PlayerFastTest, ALoadRightAfterAFailureIsNotUndoneByIt) {
  load();
  layers.front()->changeStatus(Status::Failed, NSError::create("decoder", 9));
  dispatch_wait_until_idle();
  const auto second = anotherItem();
  player->loadPlayerItem(second, into(reports));
  time.settle();
  EXPECT_EQ(player->playerItem(), second);
  EXPECT_EQ(view()->sampleBufferDisplayerLayer(), layers.back());
}

}  // namespace
}  // namespace zaffo
