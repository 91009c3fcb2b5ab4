// SPDX-License-Identifier: Apache-2.0
#include "native/AVPlayerLayerContainer.h"

#include <gtest/gtest.h>

#include <type_traits>

#include "doubles/ScriptedMutablePlayer.h"

namespace zaffo {
namespace {

class AVPlayerLayerContainerTest : public testing::Test {
 protected:
  std::shared_ptr<ScriptedMutablePlayer> player =
      std::make_shared<ScriptedMutablePlayer>("0", std::make_shared<std::vector<std::string>>());
  std::shared_ptr<AVPlayerLayer> layer = AVPlayerLayer::create();
};

TEST_F(AVPlayerLayerContainerTest, HoldsThePlayerUntilItGoes) {
  auto container = std::make_unique<AVPlayerLayerContainer>(player, layer);
  EXPECT_EQ(container->player(), player);
  EXPECT_EQ(player.use_count(), 2);
  container.reset();
  EXPECT_EQ(player.use_count(), 1);
}

TEST_F(AVPlayerLayerContainerTest, HoldsTheLayerOnlyAsLongAsOthersDo) {
  const AVPlayerLayerContainer container(player, layer);
  EXPECT_EQ(container.playerLayer(), layer);
  layer.reset();
  EXPECT_EQ(container.playerLayer(), nullptr);
  EXPECT_EQ(container.player(), player);
}

TEST_F(AVPlayerLayerContainerTest, TakesAnotherLayerJustAsWeakly) {
  AVPlayerLayerContainer container(player, layer);
  auto other = AVPlayerLayer::create();
  container.setPlayerLayer(other);
  EXPECT_EQ(container.playerLayer(), other);
  other.reset();
  EXPECT_EQ(container.playerLayer(), nullptr);
}

TEST_F(AVPlayerLayerContainerTest, DoesNotTouchTheLayerWhenItGoes) {
  const auto superlayer = CALayer::create();
  superlayer->addSublayer(layer);
  { const AVPlayerLayerContainer container(player, layer); }
  EXPECT_EQ(layer->superlayer(), superlayer);
}

TEST_F(AVPlayerLayerContainerTest, IsMadeOnlyOfAPlayerAndALayer) {
  EXPECT_FALSE(std::is_default_constructible_v<AVPlayerLayerContainer>);
}

}  // namespace
}  // namespace zaffo
