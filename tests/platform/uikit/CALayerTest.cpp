// SPDX-License-Identifier: Apache-2.0
#include "platform/uikit/CALayer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <thread>

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class CALayerTest : public testing::Test {
 protected:
  CALayerTest() {
    root->setDisplayRequestHandler([this] { ++requests; });
  }
  /// How often the root was told since the last time this was asked.
  int newRequests() { return std::exchange(requests, 0); }

  int requests = 0;
  const std::shared_ptr<CALayer> root = CALayer::create();
  const std::shared_ptr<CALayer> a = CALayer::create(), b = CALayer::create(),
                                 c = CALayer::create();
};

TEST_F(CALayerTest, StartsEmptyTransparentAndVisible) {
  EXPECT_EQ(a->frame(), CGRectZero);
  EXPECT_EQ(a->superlayer(), nullptr);
  EXPECT_THAT(a->sublayers(), IsEmpty());
  EXPECT_EQ(a->backgroundColor(), CGColor{});
  EXPECT_EQ(a->contents(), nullptr);
  EXPECT_EQ(a->contentsGravity(), CALayer::Gravity::Resize);
  EXPECT_FALSE(a->isHidden());
  EXPECT_EQ(a->opacity(), 1);
  EXPECT_FALSE(a->masksToBounds());
  EXPECT_EQ(a->picture(0), std::nullopt);
}

TEST_F(CALayerTest, KeepsSublayersInTheOrderInWhichTheyArePutIn) {
  root->addSublayer(a);
  root->addSublayer(b);
  root->insertSublayer(c, 1);
  EXPECT_THAT(root->sublayers(), ElementsAre(a, c, b));
  EXPECT_EQ(c->superlayer(), root);
}

TEST_F(CALayerTest, CountsAnIndexWithoutTheLayerThatMoves) {
  for (const auto& layer : {a, b, c}) root->addSublayer(layer);
  root->insertSublayer(a, 1);
  EXPECT_THAT(root->sublayers(), ElementsAre(b, a, c));
  root->insertSublayer(a, 99);
  EXPECT_THAT(root->sublayers(), ElementsAre(b, c, a));
  root->addSublayer(root->sublayers().front());
  EXPECT_THAT(root->sublayers(), ElementsAre(c, a, b));
}

TEST_F(CALayerTest, HasOneSuperlayer) {
  a->addSublayer(c);
  b->addSublayer(c);
  EXPECT_EQ(c->superlayer(), b);
  EXPECT_THAT(a->sublayers(), IsEmpty());
  c->removeFromSuperlayer();
  EXPECT_EQ(c->superlayer(), nullptr);
  EXPECT_THAT(b->sublayers(), IsEmpty());
  c->removeFromSuperlayer();
}

TEST_F(CALayerTest, IgnoresNull) {
  root->addSublayer(nullptr);
  EXPECT_THAT(root->sublayers(), IsEmpty());
}

TEST_F(CALayerTest, RefusesToBePutIntoItself) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  a->addSublayer(b);
  b->addSublayer(c);
  EXPECT_DEATH(a->addSublayer(a), "cannot be put into itself");
  EXPECT_DEATH(c->addSublayer(a), "cannot be put into itself");
}

TEST_F(CALayerTest, ForgetsASuperlayerThatIsDestroyed) {
  auto top = CALayer::create();
  top->addSublayer(a);
  const std::weak_ptr<CALayer> weakTop = top;
  top.reset();
  EXPECT_TRUE(weakTop.expired()) << "sublayers do not hold it";
  EXPECT_EQ(a->superlayer(), nullptr);
  a->setNeedsDisplay();
}

TEST_F(CALayerTest, IsLetGoWhenItIsRemoved) {
  auto held = CALayer::create();
  const std::weak_ptr<CALayer> weak = held;
  root->addSublayer(held);
  held.reset();
  EXPECT_FALSE(weak.expired());
  weak.lock()->removeFromSuperlayer();
  EXPECT_TRUE(weak.expired());
}

TEST_F(CALayerTest, FrameAndBoundsShareTheirSize) {
  a->setFrame(CGRectMake(10, 20, 30, 40));
  EXPECT_EQ(a->bounds(), CGRectMake(0, 0, 30, 40));
  a->setBounds(CGRectMake(5, 6, 10, 20));
  EXPECT_EQ(a->frame(), CGRectMake(20, 30, 10, 20)) << "around the same middle";
  a->setFrame(CGRectMake(1, 2, 3, 4));
  EXPECT_EQ(a->bounds(), CGRectMake(5, 6, 3, 4));
}

TEST_F(CALayerTest, LimitsOpacity) {
  a->setOpacity(7);
  EXPECT_EQ(a->opacity(), 1);
  a->setOpacity(-1);
  EXPECT_EQ(a->opacity(), 0);
  a->setOpacity(0.5);
  a->setOpacity(std::nan(""));
  EXPECT_EQ(a->opacity(), 0);
}

TEST_F(CALayerTest, TellsTheRootOfEveryVisibleChangeBelow) {
  root->addSublayer(a);
  a->addSublayer(b);
  EXPECT_EQ(newRequests(), 2);
  const auto image = std::make_shared<const CGImage>(1, 1, 4, std::vector<uint8_t>(4));
  const std::function<void()> changes[] = {
      [&] { b->setNeedsDisplay(); },
      [&] { b->setFrame(CGRectMake(0, 0, 5, 5)); },
      [&] { b->setBounds(CGRectMake(0, 1, 5, 5)); },
      [&] {
        b->setBackgroundColor({1, 0, 0, 1});
      },
      [&] { b->setContents(image); },
      [&] { b->setContentsGravity(CALayer::Gravity::Center); },
      [&] { b->setMasksToBounds(true); },
      [&] { b->setOpacity(0.5); },
      [&] { b->setHidden(true); },
      [&] { b->setHidden(false); },
      [&] { b->setOpacity(0); },
      [&] { b->setOpacity(1); },
      [&] { b->removeFromSuperlayer(); },
      [&] { root->setHidden(true); },
      [&] { root->setHidden(false); },
  };
  for (std::size_t i = 0; i < std::size(changes); ++i) {
    changes[i]();
    EXPECT_EQ(newRequests(), 1) << "change " << i;
  }
}

TEST_F(CALayerTest, TellsNothingWhenNothingChanges) {
  root->addSublayer(a);
  newRequests();
  a->setFrame(a->frame());
  a->setBounds(a->bounds());
  a->setBackgroundColor(a->backgroundColor());
  a->setContents(a->contents());
  a->setContentsGravity(a->contentsGravity());
  a->setHidden(false);
  a->setOpacity(1);
  a->setMasksToBounds(false);
  EXPECT_EQ(newRequests(), 0);
}

TEST_F(CALayerTest, TellsNothingOfWhatNobodySees) {
  root->addSublayer(a);
  a->addSublayer(b);
  a->setHidden(true);
  newRequests();
  a->setNeedsDisplay();
  b->setNeedsDisplay();
  b->setHidden(true);
  b->removeFromSuperlayer();
  a->setHidden(false);
  a->setOpacity(0);
  a->addSublayer(b);
  newRequests();
  b->setNeedsDisplay();
  a->removeFromSuperlayer();
  EXPECT_EQ(newRequests(), 0);
}

TEST_F(CALayerTest, ALayerThatWasRemovedTellsItsFormerRootNothing) {
  root->addSublayer(a);
  a->removeFromSuperlayer();
  newRequests();
  a->setNeedsDisplay();
  EXPECT_EQ(newRequests(), 0);
}

TEST_F(CALayerTest, MayBeMadeAndDestroyedOnAnyThread) {
  std::thread([] {
    const auto layer = CALayer::create();
    EXPECT_EQ(layer->superlayer(), nullptr);
  }).join();
}

TEST_F(CALayerTest, MayBeSetUpOnAnyThreadWhileItIsInNoTree) {
  std::thread([this] {
    a->setMasksToBounds(true);
    a->setFrame(CGRectMake(0, 0, 4, 4));
    a->setHidden(true);
    a->setHidden(false);
    a->setNeedsDisplay();
  }).join();
  EXPECT_TRUE(a->masksToBounds());
  EXPECT_EQ(newRequests(), 0);
}

/// A layer with a layer of its own from the start.
class Composite : public CALayer {
 public:
  static std::shared_ptr<Composite> create() { return std::shared_ptr<Composite>(new Composite); }

 protected:
  Composite() {
    addSublayer(CALayer::create());
    setBackgroundColor({0, 0, 0, 1});
  }
};

TEST_F(CALayerTest, SubclassesMayAddLayersInTheirConstructor) {
  const auto composite = Composite::create();
  ASSERT_EQ(composite->sublayers().size(), 1u);
  EXPECT_EQ(composite->sublayers().front()->superlayer(), composite);
}

}  // namespace
}  // namespace zaffo
