// SPDX-License-Identifier: Apache-2.0
#include "doubles/ScriptedAVPlayer.h"
#include "native/AVPlayerLayerContainer.h"
#include "native/PlayerNative.h"
#include "native/PlayerNativeOutputView.h"
#include "pool/PoolTest.h"

namespace zaffo {
namespace {

class PlayerManagerLayerContainerTest : public PoolTest {
 protected:
  PlayerManagerLayerContainerTest() {
    manager = OpenPlayerManager::create(
        [this](PlayerManager::PlayerKind) { return PlayerNative::create(platformPlayer); });
    platformPlayer->rateValue = 1;  // Loads end at once.
  }

  const std::shared_ptr<ScriptedAVPlayer> platformPlayer = std::make_shared<ScriptedAVPlayer>();
};

TEST_F(PlayerManagerLayerContainerTest, HoldsAUseAndTheLayerTakenOffTheScreen) {
  const auto a = request("a");
  const auto view = std::dynamic_pointer_cast<PlayerNativeOutputView>(a->handle()->outputView());
  ASSERT_TRUE(view);
  const auto screen = UIView::create();
  screen->addSubview(view);

  auto container = manager->playerLayerContainerForVideo(video("a"), {});
  ASSERT_TRUE(container);
  EXPECT_EQ(view->superview(), nullptr);
  EXPECT_EQ(container->playerLayer(), view->playerLayer());
  const auto handle = std::dynamic_pointer_cast<PlayerDecorator>(container->player());
  ASSERT_TRUE(handle);
  EXPECT_EQ(*handle, *a->handle());
  EXPECT_EQ(list(), "a 2");
}

TEST_F(PlayerManagerLayerContainerTest, DroppingItGivesTheUseBackAndLeavesTheLayer) {
  const auto a = request("a");
  auto container = manager->playerLayerContainerForVideo(video("a"), {});
  const auto layer = container->playerLayer();
  const auto elsewhere = CALayer::create();
  elsewhere->addSublayer(layer);
  container.reset();
  EXPECT_EQ(list(), "a 1");
  EXPECT_EQ(layer->superlayer(), elsewhere);
}

TEST_F(PlayerManagerLayerContainerTest, ThereIsNoneForAVideoThatIsNotPooled) {
  EXPECT_EQ(manager->playerLayerContainerForVideo(video("a"), {}), nullptr);
  const auto a = request("a");
  EXPECT_EQ(manager->playerLayerContainerForVideo(video("a"), AVPlayerItemLoaderOptions::fadeIn),
            nullptr);
  EXPECT_EQ(list(), "a 1");
}

TEST_F(PlayerManagerLayerContainerTest, ThereIsNoneForAPlayerWithAnotherViewAndTheUseIsGivenBack) {
  const auto view = UIView::create();
  manager = OpenPlayerManager::create([&](PlayerManager::PlayerKind) {
    const auto player = std::make_shared<ScriptedMutablePlayer>("p", log);
    player->view = view;
    return player;
  });
  const auto screen = UIView::create();
  screen->addSubview(view);
  const auto a = request("a");
  EXPECT_EQ(manager->playerLayerContainerForVideo(video("a"), {}), nullptr);
  EXPECT_EQ(view->superview(), screen);
  EXPECT_EQ(list(), "a 1");
}

}  // namespace
}  // namespace zaffo
