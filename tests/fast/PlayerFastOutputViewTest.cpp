// SPDX-License-Identifier: Apache-2.0
#include "fast/PlayerFastOutputView.h"

#include <gmock/gmock.h>

#include "doubles/ScriptedDisplayLayer.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PlayerFastOutputViewTest : public testing::Test {
 protected:
  const std::shared_ptr<PlayerFastOutputView> view =
      PlayerFastOutputView::create(CGRectMake(10, 20, 300, 400));
  const std::shared_ptr<ScriptedDisplayLayer> layer = std::make_shared<ScriptedDisplayLayer>();
};

TEST_F(PlayerFastOutputViewTest, StartsWithoutALayerAndConfiguresNothing) {
  const auto plain = PlayerFastOutputView::create();
  EXPECT_EQ(plain->frame(), CGRectZero);
  EXPECT_EQ(plain->sampleBufferDisplayerLayer(), nullptr);
  EXPECT_THAT(plain->layer()->sublayers(), IsEmpty());
  EXPECT_EQ(plain->backgroundColor(), CGColor{});
  EXPECT_EQ(plain->contentMode(), UIViewContentMode::ScaleToFill);
  EXPECT_EQ(PlayerFastOutputView::createWithCoder(nullptr)->sampleBufferDisplayerLayer(), nullptr);
}

TEST_F(PlayerFastOutputViewTest, PlacesALayerAtItsBounds) {
  view->setSampleBufferDisplayerLayer(layer);
  EXPECT_EQ(view->sampleBufferDisplayerLayer(), layer);
  EXPECT_THAT(view->layer()->sublayers(), ElementsAre(layer));
  EXPECT_EQ(layer->frame(), CGRectMake(0, 0, 300, 400));
}

TEST_F(PlayerFastOutputViewTest, LetsTheLayerFollowItsBoundsAtLayout) {
  view->setSampleBufferDisplayerLayer(layer);
  view->setFrame(CGRectMake(0, 0, 30, 40));
  EXPECT_EQ(layer->frame(), CGRectMake(0, 0, 300, 400));
  view->layoutIfNeeded();
  EXPECT_EQ(layer->frame(), CGRectMake(0, 0, 30, 40));
}

TEST_F(PlayerFastOutputViewTest, LaysOutWithoutALayer) {
  view->layoutIfNeeded();
  EXPECT_FALSE(view->needsLayout());
}

TEST_F(PlayerFastOutputViewTest, TakesTheOldLayerOutForANewOneAndForNone) {
  const auto other = std::make_shared<ScriptedDisplayLayer>();
  view->setSampleBufferDisplayerLayer(layer);
  view->setSampleBufferDisplayerLayer(other);
  EXPECT_EQ(layer->superlayer(), nullptr);
  EXPECT_THAT(view->layer()->sublayers(), ElementsAre(other));
  view->setSampleBufferDisplayerLayer(nullptr);
  EXPECT_EQ(other->superlayer(), nullptr);
  EXPECT_THAT(view->layer()->sublayers(), IsEmpty());
  EXPECT_EQ(other.use_count(), 1);
}

TEST_F(PlayerFastOutputViewTest, TheSameLayerAgainIsTakenOutAndPutOnTop) {
  view->setSampleBufferDisplayerLayer(layer);
  const auto above = CALayer::create();
  view->layer()->addSublayer(above);
  layer->setFrame(CGRectZero);
  view->setSampleBufferDisplayerLayer(layer);
  EXPECT_THAT(view->layer()->sublayers(), ElementsAre(above, layer));
  EXPECT_EQ(layer->frame(), CGRectMake(0, 0, 300, 400));
}

}  // namespace
}  // namespace zaffo
