// SPDX-License-Identifier: Apache-2.0
#include "pool/PlayerInfo.h"

#include <gmock/gmock.h>

#include <limits>

#include "doubles/ScriptedAVPlayerItem.h"
#include "doubles/ScriptedMutablePlayer.h"
#include "doubles/TestVideo.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

constexpr const char* kUnbalancedLine =
    "PlayerManager: Unbalanced calls between releasePlayer and playerForItem.\n";
constexpr AVPlayerItemLoaderOptions kOptions{5};

class PlayerInfoTest : public testing::Test {
 protected:
  using Handler = PlayerInfo::LoadCompletionHandlerPtr;

  /// A handler that logs `name` and the code it is told, 0 for none.
  Handler handler(const std::string& name) {
    return std::make_shared<PlayerInfo::LoadCompletionHandler>(
        PlayerInfo::LoadCompletionHandler{[this, name](NSErrorPtr error) {
          log->push_back(name + " " + std::to_string(error ? error->code() : 0));
          lastError = error;
        }});
  }

  ZFCancelCommandPtr command() {
    return std::make_shared<ZFCallbackCancelCommand>([this] { log->push_back("load cancelled"); });
  }

  /// A record that holds `video` with kOptions, in `state`, with one use.
  void hold(bool keepsItem, PlayerState state) {
    video = std::make_shared<TestVideo>("1234", keepsItem);
    record.reuse(video, kOptions);
    record.setState(state);
    record.acquireOwnership();
    log->clear();
  }

  const EventLog log = std::make_shared<std::vector<std::string>>();
  const std::shared_ptr<ScriptedMutablePlayer> player =
      std::make_shared<ScriptedMutablePlayer>("player", log);
  PlayerInfo record{3, PlayerSupportedItemType::Local, player};
  std::shared_ptr<TestVideo> video;
  NSErrorPtr lastError;
};

TEST_F(PlayerInfoTest, StartsEmpty) {
  EXPECT_EQ(record.id(), 3);
  EXPECT_EQ(record.state(), PlayerState::NotLoaded);
  EXPECT_EQ(record.loadCommand(), nullptr);
  EXPECT_EQ(record.supportedItemType(), PlayerSupportedItemType::Local);
  EXPECT_EQ(record.activeUses(), 0);
  EXPECT_EQ(record.video(), nullptr);
  EXPECT_EQ(record.options(), AVPlayerItemLoaderOptions());
  EXPECT_THAT(record.loadCompletionHandlers(), IsEmpty());
  EXPECT_EQ(record.player(), player);
}

TEST_F(PlayerInfoTest, ReusePointsItAtTheOtherVideoAndLeavesPlayerAndUses) {
  hold(true, PlayerState::Loaded);
  const auto other = std::make_shared<TestVideo>("other");
  record.reuse(other, AVPlayerItemLoaderOptions::fadeIn);
  EXPECT_EQ(record.video(), other);
  EXPECT_EQ(record.options(), AVPlayerItemLoaderOptions::fadeIn);
  EXPECT_EQ(record.state(), PlayerState::NotLoaded);
  EXPECT_EQ(record.activeUses(), 1);
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(PlayerInfoTest, ReuseCancelsTheLoadThenFailsTheWaitingCallersInOrder) {
  hold(true, PlayerState::Loading);
  record.setLoadCommand(command());
  record.add(handler("first"));
  record.add(handler("second"));
  record.reuse(std::make_shared<TestVideo>("other"), {});
  EXPECT_THAT(*log, ElementsAre("load cancelled", "first 500", "second 500"));
  EXPECT_EQ(record.loadCommand(), nullptr);
  EXPECT_THAT(record.loadCompletionHandlers(), IsEmpty());
  EXPECT_EQ(lastError->domain(), "com.zaffoapp.co");
  EXPECT_EQ(lastError->userInfo().at(NSLocalizedDescriptionKey),
            "The player has been reused during loading. You can prevent that from happening by "
            "increasing the PlayerManager.maxAllowedConcurrentPlayers and/or "
            "PlayerManager.maxPlayersAtIdleState");
  EXPECT_EQ(lastError->userInfo().size(), 1u);
}

TEST_F(PlayerInfoTest, ReuseHasPointedAtTheOtherVideoWhenTheCallersFail) {
  hold(true, PlayerState::Loading);
  const auto other = std::make_shared<TestVideo>("other");
  bool called = false;
  record.add(std::make_shared<PlayerInfo::LoadCompletionHandler>(
      PlayerInfo::LoadCompletionHandler{[&](const NSErrorPtr&) {
        called = true;
        EXPECT_EQ(record.video(), other);
        EXPECT_EQ(record.state(), PlayerState::NotLoaded);
      }}));
  record.reuse(other, {});
  EXPECT_TRUE(called);
}

TEST_F(PlayerInfoTest, RemoveOfAHandlerThatWasNeverAddedIsFalse) {
  record.add(handler("added"));
  EXPECT_FALSE(record.remove(handler("added")));
  EXPECT_EQ(record.loadCompletionHandlers().size(), 1u);
}

TEST_F(PlayerInfoTest, AHandlerAddedTwiceIsCalledTwice) {
  const auto twice = handler("twice");
  record.add(twice);
  record.add(twice);
  record.notifyCompletionHandlers(nullptr);
  EXPECT_THAT(*log, ElementsAre("twice 0", "twice 0"));
}

TEST_F(PlayerInfoTest, RemoveTakesOutOnlyTheFirstCopy) {
  const auto twice = handler("twice");
  record.add(twice);
  record.add(handler("between"));
  record.add(twice);
  EXPECT_TRUE(record.remove(twice));
  record.notifyCompletionHandlers(nullptr);
  EXPECT_THAT(*log, ElementsAre("between 0", "twice 0"));
}

TEST_F(PlayerInfoTest, TheSameFunctionInTwoHandlersIsTwoHandlers) {
  const auto first = handler("same");
  const auto second = std::make_shared<PlayerInfo::LoadCompletionHandler>(*first);
  record.add(first);
  EXPECT_FALSE(record.remove(second));
  EXPECT_TRUE(record.remove(first));
}

TEST_F(PlayerInfoTest, HandlersAddedDuringANotificationWaitForTheNextOne) {
  record.add(std::make_shared<PlayerInfo::LoadCompletionHandler>(
      PlayerInfo::LoadCompletionHandler{[this](const NSErrorPtr&) {
        log->push_back("adding");
        record.add(handler("added"));
      }}));
  record.notifyCompletionHandlers(nullptr);
  EXPECT_THAT(*log, ElementsAre("adding"));
  record.notifyCompletionHandlers(nullptr);
  EXPECT_THAT(*log, ElementsAre("adding", "added 0"));
}

TEST_F(PlayerInfoTest, AHandlerRemovedDuringANotificationIsStillCalled) {
  const auto second = handler("second");
  record.add(std::make_shared<PlayerInfo::LoadCompletionHandler>(PlayerInfo::LoadCompletionHandler{
      [&](const NSErrorPtr&) { EXPECT_FALSE(record.remove(second)); }}));
  record.add(second);
  record.notifyCompletionHandlers(nullptr);
  EXPECT_THAT(*log, ElementsAre("second 0"));
}

TEST_F(PlayerInfoTest, CountsUses) {
  record.acquireOwnership();
  record.acquireOwnership();
  EXPECT_EQ(record.activeUses(), 2);
  record.releaseOwnership();
  EXPECT_EQ(record.activeUses(), 1);
}

TEST_F(PlayerInfoTest, ReleaseWithAnotherUseLeftParksNothing) {
  hold(false, PlayerState::Loaded);
  record.acquireOwnership();
  record.releaseOwnership();
  EXPECT_EQ(record.state(), PlayerState::Loaded);
  EXPECT_EQ(record.video(), video);
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(PlayerInfoTest, LastReleaseKeepsTheItemOfAVideoThatAllowsIt) {
  hold(true, PlayerState::Loaded);
  record.releaseOwnership();
  EXPECT_EQ(record.state(), PlayerState::Loaded);
  EXPECT_EQ(record.video(), video);
  EXPECT_EQ(record.options(), kOptions);
  EXPECT_THAT(*log, IsEmpty());
}

TEST_F(PlayerInfoTest, LastReleaseTearsDownTheItemOfAVideoThatForbidsKeepingIt) {
  hold(false, PlayerState::Loaded);
  record.releaseOwnership();
  EXPECT_THAT(*log, ElementsAre("player teardown"));
  EXPECT_EQ(record.state(), PlayerState::NotLoaded);
  EXPECT_EQ(record.video(), nullptr);
  EXPECT_EQ(record.options(), AVPlayerItemLoaderOptions());
}

TEST_F(PlayerInfoTest, LastReleaseTearsDownAnItemThatIsNotToBeKeptWhateverItsVideoSays) {
  hold(true, PlayerState::Loaded);
  record.setKeepsItem(false);
  record.releaseOwnership();
  EXPECT_THAT(*log, ElementsAre("player teardown"));
  EXPECT_EQ(record.video(), nullptr);
}

TEST_F(PlayerInfoTest, AnotherVideosItemIsKeptAgain) {
  hold(true, PlayerState::Loaded);
  record.setKeepsItem(false);
  hold(true, PlayerState::Loaded);
  record.setActiveUses(1);
  record.releaseOwnership();
  EXPECT_EQ(record.state(), PlayerState::Loaded);
}

TEST_F(PlayerInfoTest, LastReleaseEndsALoadThatNobodyWaitsFor) {
  hold(true, PlayerState::Loading);
  record.setLoadCommand(command());
  record.releaseOwnership();
  EXPECT_THAT(*log, ElementsAre("load cancelled"));
  EXPECT_EQ(record.loadCommand(), nullptr);
  EXPECT_EQ(record.state(), PlayerState::NotLoaded);
  EXPECT_EQ(record.video(), nullptr);
  EXPECT_EQ(record.options(), AVPlayerItemLoaderOptions());
}

TEST_F(PlayerInfoTest, LastReleaseLeavesALoadThatSomeoneWaitsFor) {
  hold(true, PlayerState::Loading);
  record.setLoadCommand(command());
  record.add(handler("waiting"));
  record.releaseOwnership();
  EXPECT_THAT(*log, IsEmpty());
  EXPECT_EQ(record.state(), PlayerState::Loading);
  EXPECT_NE(record.loadCommand(), nullptr);
  EXPECT_EQ(record.video(), video);
}

TEST_F(PlayerInfoTest, UnbalancedReleasePrintsOneLineAndStaysAtZero) {
  CaptureStdout();
  record.releaseOwnership();
  EXPECT_EQ(GetCapturedStdout(), kUnbalancedLine);
  EXPECT_EQ(record.activeUses(), 0);
}

TEST_F(PlayerInfoTest, UnbalancedReleaseStillParksThePlayer) {
  hold(false, PlayerState::Loaded);
  record.setActiveUses(0);
  CaptureStdout();
  record.releaseOwnership();
  EXPECT_EQ(GetCapturedStdout(), kUnbalancedLine);
  EXPECT_THAT(*log, ElementsAre("player teardown"));
  EXPECT_EQ(record.video(), nullptr);
}

TEST_F(PlayerInfoTest, BalancedReleasePrintsNothing) {
  hold(true, PlayerState::Loaded);
  CaptureStdout();
  record.releaseOwnership();
  EXPECT_EQ(GetCapturedStdout(), "");
}

TEST_F(PlayerInfoTest, OverflowOfTheUseCountIsFatal) {
  record.setActiveUses(std::numeric_limits<std::int64_t>::max());
  EXPECT_DEATH(record.acquireOwnership(), "overflow");
  record.setActiveUses(std::numeric_limits<std::int64_t>::min());
  EXPECT_DEATH(record.releaseOwnership(), "overflow");
}

TEST_F(PlayerInfoTest, DescribesItself) {
  EXPECT_EQ(record.debugDescription(), "Player 3 - videoId: nil, state: NotLoaded, activeUses: 0");
  hold(true, PlayerState::Loaded);
  EXPECT_EQ(record.debugDescription(), "Player 3 - videoId: 1234, state: Loaded, activeUses: 1");
  record.setState(PlayerState::Loading);
  record.acquireOwnership();
  EXPECT_EQ(record.debugDescription(), "Player 3 - videoId: 1234, state: Loading, activeUses: 2");
}

TEST_F(PlayerInfoTest, HoldsAVideoWithTheSameId) {
  EXPECT_FALSE(record.holds(TestVideo("1234")));
  hold(true, PlayerState::Loading);
  EXPECT_TRUE(record.holds(TestVideo("1234")));
  EXPECT_FALSE(record.holds(TestVideo("12345")));
}

TEST_F(PlayerInfoTest, HoldsAVideoWithTheSameIdAndOptions) {
  EXPECT_FALSE(record.holds(TestVideo("1234"), {}));
  hold(true, PlayerState::Loading);
  EXPECT_TRUE(record.holds(TestVideo("1234"), kOptions));
  EXPECT_FALSE(record.holds(TestVideo("1234"), {}));
  EXPECT_FALSE(record.holds(TestVideo("12345"), kOptions));
}

}  // namespace
}  // namespace zaffo
