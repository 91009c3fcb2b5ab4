// SPDX-License-Identifier: Apache-2.0
#include "pool/PlayerDecorator.h"

#include <thread>

#include "platform/dispatch/MainLoop.h"
#include "platform/foundation/NSThread.h"
#include "pool/PoolTest.h"

namespace zaffo {
namespace {

using testing::ElementsAre;

/// A pool that only remembers what is given back to it.
class ReleaseRecorder final : public PlayerManager {
 public:
  ReleaseRecorder() : PlayerManager({}) {}
  void releasePlayer(const std::shared_ptr<Player>& player) override {
    EXPECT_TRUE(NSThread::isMainThread());
    released.push_back(player);
    if (onRelease) onRelease();
  }
  std::function<void()> onRelease;
  std::vector<std::shared_ptr<Player>> released;
};

class PlayerDecoratorTest : public testing::Test {
 protected:
  static void onAnotherThread(const std::function<void()>& work) { std::thread(work).join(); }

  std::shared_ptr<PlayerDecorator> makeHandle() {
    return std::make_shared<PlayerDecorator>(manager, inner);
  }
  std::shared_ptr<PlayerDecorator> makeOrphan() {
    auto handle = makeHandle();
    inner.reset();
    return handle;
  }

  std::shared_ptr<ReleaseRecorder> manager = std::make_shared<ReleaseRecorder>();
  std::shared_ptr<ScriptedMutablePlayer> inner = std::make_shared<ScriptedMutablePlayer>(
      "inner", std::make_shared<std::vector<std::string>>());
};

TEST_F(PlayerDecoratorTest, HoldsNeitherThePlayerNorThePoolAlive) {
  const auto handle = makeHandle();
  EXPECT_EQ(manager.use_count(), 1);
  EXPECT_EQ(inner.use_count(), 1);
  EXPECT_TRUE(manager->released.empty());
}

TEST_F(PlayerDecoratorTest, IsBoundUntilItIsGivenBackOrOrphaned) {
  const auto released = makeHandle(), discarded = makeHandle(), orphan = makeHandle();
  EXPECT_TRUE(released->isBound());
  released->releaseToManager();
  EXPECT_FALSE(released->isBound());
  discarded->discardToManager();
  EXPECT_FALSE(discarded->isBound());
  EXPECT_TRUE(orphan->isBound());
  manager->released.clear();
  inner.reset();
  EXPECT_FALSE(orphan->isBound());
}

TEST_F(PlayerDecoratorTest, ForwardsEveryOperation) {
  const auto handle = makeHandle();
  inner->item = ScriptedAVPlayerItem::create(true);
  inner->view = UIView::create();
  handle->setRate(0.5f);
  handle->setVolume(0.25f);
  handle->setCurrentTime(CMTimeMake(3, 2));
  EXPECT_EQ(inner->rateValue, 0.5f);
  EXPECT_EQ(inner->volumeValue, 0.25f);
  EXPECT_EQ(inner->timeValue, CMTimeMake(3, 2));
  EXPECT_EQ(handle->rate(), 0.5f);
  EXPECT_EQ(handle->volume(), 0.25f);
  EXPECT_EQ(handle->currentTime(), CMTimeMake(3, 2));
  EXPECT_EQ(handle->playerItem(), inner->item);
  EXPECT_EQ(handle->outputView(), inner->view);
}

TEST_F(PlayerDecoratorTest, ForwardsASeekWithAllItsArguments) {
  const auto handle = makeHandle();
  std::vector<bool> finished;
  handle->seekToTime(CMTimeMake(3, 1), CMTimeMake(1, 1), CMTimeMake(2, 1),
                     [&](bool f) { finished.push_back(f); });
  ASSERT_EQ(inner->seeks.size(), 1u);
  const auto& seek = inner->seeks.front();
  EXPECT_EQ(seek.time, CMTimeMake(3, 1));
  EXPECT_EQ(seek.toleranceBefore, CMTimeMake(1, 1));
  EXPECT_EQ(seek.toleranceAfter, CMTimeMake(2, 1));
  seek.completion(true);
  seek.completion(false);
  EXPECT_THAT(finished, ElementsAre(true, false));
}

TEST_F(PlayerDecoratorTest, ForwardsTimeObserversAndReturnsThePlayersCommands) {
  const auto handle = makeHandle();
  std::vector<CMTime> told;
  const auto boundary =
      handle->addTimeObserver(std::vector<CMTime>{CMTimeMake(1, 1), CMTimeMake(2, 1)},
                              [&](CMTime time) { told.push_back(time); });
  const auto periodic =
      handle->addTimeObserver(CMTimeMake(1, 10), [&](CMTime time) { told.push_back(time); });
  EXPECT_THAT(inner->boundaries,
              ElementsAre(std::vector<CMTime>{CMTimeMake(1, 1), CMTimeMake(2, 1)}));
  EXPECT_THAT(inner->intervals, ElementsAre(CMTimeMake(1, 10)));
  EXPECT_EQ(boundary, inner->timeCommands.at(0));
  EXPECT_EQ(periodic, inner->timeCommands.at(1));
  inner->timeHandlers.at(0)(CMTimeMake(1, 1));
  inner->timeHandlers.at(1)(CMTimeMake(5, 1));
  EXPECT_THAT(told, ElementsAre(CMTimeMake(1, 1), CMTimeMake(5, 1)));
}

TEST_F(PlayerDecoratorTest, ReleasingTwiceGivesBackOnce) {
  const auto handle = makeHandle();
  handle->releaseToManager();
  handle->releaseToManager();
  EXPECT_THAT(manager->released, ElementsAre(inner));
}

TEST_F(PlayerDecoratorTest, ReleasingAndDroppingGivesBackOnce) {
  auto handle = makeHandle();
  handle->releaseToManager();
  handle.reset();
  EXPECT_THAT(manager->released, ElementsAre(inner));
}

TEST_F(PlayerDecoratorTest, AHandleThatIsDroppedInsideItsReleaseGivesBackOnce) {
  auto handle = makeHandle();
  manager->onRelease = [&] { handle.reset(); };
  auto* const released = handle.get();
  released->releaseToManager();
  EXPECT_THAT(manager->released, ElementsAre(inner));
}

TEST_F(PlayerDecoratorTest, DiscardingGivesBackOnce) {
  auto handle = makeHandle();
  handle->discardToManager();
  handle->releaseToManager();
  handle.reset();
  EXPECT_THAT(manager->released, ElementsAre(inner));
}

TEST_F(PlayerDecoratorTest, DiscardingOnAnotherThreadGivesBackLaterOnTheMainThread) {
  auto handle = makeHandle();
  onAnotherThread([&handle] { handle->discardToManager(); });
  EXPECT_TRUE(manager->released.empty());
  MainLoop::runTurn();
  EXPECT_THAT(manager->released, ElementsAre(inner));
}

TEST_F(PlayerDecoratorTest, DroppingGivesBackAtOnceOnTheMainThread) {
  makeHandle().reset();
  EXPECT_THAT(manager->released, ElementsAre(inner));
}

TEST_F(PlayerDecoratorTest, DroppingOnAnotherThreadGivesBackLaterOnTheMainThread) {
  auto handle = makeHandle();
  onAnotherThread([&handle] { handle.reset(); });
  EXPECT_TRUE(manager->released.empty());
  MainLoop::runTurn();
  EXPECT_THAT(manager->released, ElementsAre(inner));
}

TEST_F(PlayerDecoratorTest, ReleasingOnAnotherThreadGivesBackOnceLaterOnTheMainThread) {
  auto handle = makeHandle();
  onAnotherThread([&handle] {
    handle->releaseToManager();
    handle->releaseToManager();
  });
  EXPECT_TRUE(manager->released.empty());
  handle.reset();
  MainLoop::runTurn();
  EXPECT_THAT(manager->released, ElementsAre(inner));
}

TEST_F(PlayerDecoratorTest, AReleaseOnAnotherThreadKeepsPlayerAndPoolUntilItHasRun) {
  auto handle = makeHandle();
  onAnotherThread([&handle] { handle->releaseToManager(); });
  const std::weak_ptr<Player> weakInner = inner;
  const std::weak_ptr<PlayerManager> weakManager = manager;
  inner.reset();
  manager.reset();
  EXPECT_FALSE(weakInner.expired());
  EXPECT_FALSE(weakManager.expired());
  MainLoop::runTurn();
  EXPECT_TRUE(weakInner.expired());
  EXPECT_TRUE(weakManager.expired());
}

TEST_F(PlayerDecoratorTest, StillForwardsAfterTheRelease) {
  const auto handle = makeHandle();
  handle->releaseToManager();
  inner->rateValue = 2;
  EXPECT_EQ(handle->rate(), 2);
  handle->setRate(1);
  EXPECT_EQ(inner->rateValue, 1);
}

TEST_F(PlayerDecoratorTest, AnswersWithNeutralValuesWithoutAPlayer) {
  const auto handle = makeOrphan();
  handle->setRate(1);
  handle->setVolume(1);
  handle->setCurrentTime(CMTimeMake(1, 1));
  EXPECT_EQ(handle->innerPlayer(), nullptr);
  EXPECT_EQ(handle->rate(), 0);
  EXPECT_EQ(handle->volume(), 0);
  EXPECT_EQ(handle->currentTime(), kCMTimeZero);
  EXPECT_EQ(handle->playerItem(), nullptr);
}

TEST_F(PlayerDecoratorTest, NeverCallsASeeksCompletionWithoutAPlayer) {
  const auto handle = makeOrphan();
  bool called = false;
  const auto token = std::make_shared<int>(0);
  handle->seekToTime(kCMTimeZero, kCMTimeZero, kCMTimeZero,
                     [&called, token](bool) { called = true; });
  EXPECT_FALSE(called);
  EXPECT_EQ(token.use_count(), 1) << "the completion is dropped";
}

TEST_F(PlayerDecoratorTest, ObservesNothingWithoutAPlayer) {
  const auto handle = makeOrphan();
  EXPECT_EQ(handle->addTimeObserver(std::vector<CMTime>{kCMTimeZero}, [](CMTime) {}),
            ZFNoopCancelCommand::sharedInstance());
  EXPECT_EQ(handle->addTimeObserver(CMTimeMake(1, 1), [](CMTime) {}),
            ZFNoopCancelCommand::sharedInstance());
}

TEST_F(PlayerDecoratorTest, ShowsTheSameEmptyViewAlwaysWithoutAPlayer) {
  const auto handle = makeOrphan();
  const auto view = handle->outputView();
  ASSERT_TRUE(view);
  EXPECT_EQ(handle->outputView(), view);
  EXPECT_EQ(view->frame(), CGRectZero);
  EXPECT_TRUE(view->subviews().empty());
  EXPECT_NE(makeOrphan()->outputView(), view);
}

TEST_F(PlayerDecoratorTest, AReleaseWithoutAPlayerGivesNothingBackAndKeepsThePool) {
  const auto kept = inner;
  const auto handle = makeHandle();
  handle->setInnerPlayer(nullptr);
  handle->releaseToManager();
  EXPECT_TRUE(manager->released.empty());
  // The pool is still known: with a player again, the use is given back.
  handle->setInnerPlayer(kept);
  handle->releaseToManager();
  EXPECT_THAT(manager->released, ElementsAre(kept));
}

TEST_F(PlayerDecoratorTest, DoesNothingOnReleaseWhenThePoolHasGone) {
  auto handle = makeHandle();
  manager.reset();
  handle->releaseToManager();
  EXPECT_EQ(handle->innerPlayer(), inner);
  handle.reset();
}

TEST_F(PlayerDecoratorTest, HandlesToTheSamePlayerAreEqual) {
  const auto first = makeHandle();
  const auto second = std::make_shared<PlayerDecorator>(nullptr, inner);
  EXPECT_TRUE(*first == *second);
  first->releaseToManager();
  EXPECT_TRUE(*first == *second);
  const auto other = std::make_shared<ScriptedMutablePlayer>(
      "other", std::make_shared<std::vector<std::string>>());
  second->setInnerPlayer(other);
  EXPECT_FALSE(*first == *second);
}

TEST_F(PlayerDecoratorTest, OrphansAreEqualAndDifferFromBoundHandles) {
  const auto kept = inner;
  const auto bound = makeHandle();
  const auto first = std::make_shared<PlayerDecorator>(manager, nullptr);
  const auto second = std::make_shared<PlayerDecorator>(nullptr, nullptr);
  EXPECT_TRUE(*first == *second);
  EXPECT_FALSE(*first == *bound);
  EXPECT_FALSE(*bound == *first);
}

}  // namespace
}  // namespace zaffo
