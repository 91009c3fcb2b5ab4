// SPDX-License-Identifier: Apache-2.0
#include "native/PlayerNativeOutputView.h"

#include <gmock/gmock.h>

#include <type_traits>

#include "doubles/ScriptedAVPlayer.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

class PlayerNativeOutputViewTest : public testing::Test {
 protected:
  const std::shared_ptr<ScriptedAVPlayer> player = std::make_shared<ScriptedAVPlayer>();
  const std::shared_ptr<PlayerNativeOutputView> view = PlayerNativeOutputView::create(player);
  const std::shared_ptr<AVPlayerLayer> layer = view->playerLayer();
  const std::shared_ptr<UIView> screen = UIView::create();
};

TEST_F(PlayerNativeOutputViewTest, IsMadeEmptyWithTheLayerOfItsPlayer) {
  EXPECT_EQ(view->frame(), CGRectZero);
  EXPECT_EQ(layer->player(), player);
  EXPECT_THAT(view->layer()->sublayers(), ElementsAre(layer));
}

TEST_F(PlayerNativeOutputViewTest, MapsTheContentModeToAGravity) {
  struct Case {
    UIViewContentMode mode;
    AVLayerVideoGravity gravity;
  };
  CaptureStdout();
  for (const auto& [mode, gravity] :
       {Case{UIViewContentMode::ScaleAspectFill, AVLayerVideoGravityResizeAspectFill},
        Case{UIViewContentMode::ScaleAspectFit, AVLayerVideoGravityResizeAspect},
        Case{UIViewContentMode::ScaleToFill, AVLayerVideoGravityResize}}) {
    view->setContentMode(mode);
    EXPECT_EQ(layer->videoGravity(), gravity);
    EXPECT_EQ(view->contentMode(), mode);
  }
  EXPECT_EQ(GetCapturedStdout(), "");
}

TEST_F(PlayerNativeOutputViewTest, ShowsAnyOtherModeAsAspectFillAndSaysSoButKeepsIt) {
  for (int value = 3; value <= 12; ++value) {
    view->setContentMode(UIViewContentMode::ScaleToFill);
    CaptureStdout();
    view->setContentMode(static_cast<UIViewContentMode>(value));
    EXPECT_EQ(GetCapturedStdout(), "PlayerNativeOutputView: unsupported contentMode " +
                                       std::to_string(value) +
                                       ". Falling back to ScaleAspectFill\n");
    EXPECT_EQ(layer->videoGravity(), AVLayerVideoGravityResizeAspectFill);
    EXPECT_EQ(view->contentMode(), static_cast<UIViewContentMode>(value));
  }
}

TEST_F(PlayerNativeOutputViewTest, KeepsTheLayerAtTheSizeOfItsBounds) {
  view->setFrame(CGRectMake(10, 20, 300, 400));
  view->layoutIfNeeded();
  EXPECT_EQ(layer->frame(), CGRectMake(0, 0, 300, 400));
  view->setFrame(CGRectMake(10, 20, 30, 40));
  view->layoutIfNeeded();
  EXPECT_EQ(layer->frame(), CGRectMake(0, 0, 30, 40));
}

TEST_F(PlayerNativeOutputViewTest, AsksForNothingInASuperviewWhenItHasItsLayer) {
  view->layoutIfNeeded();
  const auto above = CALayer::create();
  view->layer()->addSublayer(above);
  screen->addSubview(view);
  EXPECT_THAT(view->layer()->sublayers(), ElementsAre(layer, above)) << "not moved to the top";
  EXPECT_FALSE(view->needsLayout());
}

TEST_F(PlayerNativeOutputViewTest, TakesALentLayerBackInASuperviewAndLaysItOut) {
  view->setFrame(CGRectMake(0, 0, 100, 200));
  view->layoutIfNeeded();
  const auto elsewhere = CALayer::create();
  elsewhere->addSublayer(layer);
  layer->setFrame(CGRectMake(5, 5, 5, 5));

  screen->addSubview(view);
  EXPECT_EQ(layer->superlayer(), view->layer());
  EXPECT_TRUE(elsewhere->sublayers().empty());
  EXPECT_TRUE(view->needsLayout());
  view->layoutIfNeeded();
  EXPECT_EQ(layer->frame(), CGRectMake(0, 0, 100, 200));
}

TEST_F(PlayerNativeOutputViewTest, TakesALayerBackThatLiesNowhere) {
  layer->removeFromSuperlayer();
  screen->addSubview(view);
  EXPECT_EQ(layer->superlayer(), view->layer());
}

TEST_F(PlayerNativeOutputViewTest, LeavesALentLayerWhenItIsTakenOutOfItsSuperview) {
  screen->addSubview(view);
  const auto elsewhere = CALayer::create();
  elsewhere->addSublayer(layer);
  view->removeFromSuperview();
  EXPECT_EQ(layer->superlayer(), elsewhere);
}

TEST_F(PlayerNativeOutputViewTest, IsMadeOfNothingButAPlayer) {
  EXPECT_FALSE(std::is_default_constructible_v<PlayerNativeOutputView>);
  EXPECT_FALSE((std::is_constructible_v<PlayerNativeOutputView, CGRect>));
}

TEST(PlayerNativeOutputViewDeathTest, IsNotMadeFromAnArchive) {
  EXPECT_DEATH((void)PlayerNativeOutputView::createWithCoder(nullptr),
               "init\\(coder:\\) has not been implemented");
}

}  // namespace
}  // namespace zaffo
