// SPDX-License-Identifier: Apache-2.0
#include "platform/uikit/UIView.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Counts what a view is told, and can be given something to do then.
class ScriptedView : public UIView {
 public:
  static std::shared_ptr<ScriptedView> create(CGRect frame = CGRectMake(0, 0, 10, 10)) {
    return std::shared_ptr<ScriptedView>(new ScriptedView(frame));
  }
  void layoutSubviews() override {
    UIView::layoutSubviews();
    ++layouts;
    if (onLayout) onLayout();
  }
  void didMoveToSuperview() override {
    UIView::didMoveToSuperview();
    superviews.push_back(superview().get());
    if (onMove) onMove();
  }

  int layouts = 0;
  std::vector<UIView*> superviews;  ///< as found by didMoveToSuperview; not kept alive
  std::function<void()> onLayout, onMove;

 protected:
  using UIView::UIView;
};

class UIViewTest : public testing::Test {
 protected:
  UIViewTest() {
    root->layoutIfNeeded();
    root->layer()->setDisplayRequestHandler([this] { ++requests; });
  }
  int newRequests() { return std::exchange(requests, 0); }

  int requests = 0;
  const std::shared_ptr<ScriptedView> root = ScriptedView::create();
  const std::shared_ptr<ScriptedView> a = ScriptedView::create(), b = ScriptedView::create(),
                                      c = ScriptedView::create();
};

TEST_F(UIViewTest, StartsWithItsFrameAndALayerOfIt) {
  const auto view = UIView::create(CGRectMake(1, 2, 3, 4));
  EXPECT_EQ(view->frame(), CGRectMake(1, 2, 3, 4));
  EXPECT_EQ(view->bounds(), CGRectMake(0, 0, 3, 4));
  EXPECT_EQ(view->layer()->frame(), CGRectMake(1, 2, 3, 4));
  EXPECT_EQ(view->superview(), nullptr);
  EXPECT_THAT(view->subviews(), IsEmpty());
  EXPECT_EQ(view->contentMode(), UIViewContentMode::ScaleToFill);
  EXPECT_TRUE(view->needsLayout());
  EXPECT_FALSE(view->isHidden());
}

TEST_F(UIViewTest, KeepsSubviewsAndTheirLayersInOneOrder) {
  root->addSubview(a);
  root->addSubview(b);
  root->insertSubview(c, 1);
  EXPECT_THAT(root->subviews(), ElementsAre(a, c, b));
  EXPECT_THAT(root->layer()->sublayers(), ElementsAre(a->layer(), c->layer(), b->layer()));
  root->insertSubview(a, 1);
  EXPECT_THAT(root->subviews(), ElementsAre(c, a, b));
  EXPECT_THAT(root->layer()->sublayers(), ElementsAre(c->layer(), a->layer(), b->layer()));
}

TEST_F(UIViewTest, PutsLayersOfSubviewsAmongOtherLayers) {
  const auto picture = CALayer::create(), overlay = CALayer::create();
  root->layer()->addSublayer(picture);
  root->addSubview(a);
  root->addSubview(b);
  root->layer()->insertSublayer(overlay, 2);  // between a and b
  root->insertSubview(c, 1);
  EXPECT_THAT(root->layer()->sublayers(),
              ElementsAre(picture, a->layer(), overlay, c->layer(), b->layer()));
  root->insertSubview(b, 0);
  EXPECT_THAT(root->subviews(), ElementsAre(b, a, c));
  EXPECT_THAT(root->layer()->sublayers(),
              ElementsAre(picture, b->layer(), a->layer(), overlay, c->layer()));
  root->insertSubview(b, 77);
  EXPECT_EQ(root->layer()->sublayers().back(), b->layer());
}

TEST_F(UIViewTest, GoesOnTopWhenTheLayerOfTheViewAboveLiesElsewhere) {
  root->addSubview(a);
  CALayer::create()->addSublayer(a->layer());
  root->insertSubview(b, 0);
  EXPECT_THAT(root->subviews(), ElementsAre(b, a));
  EXPECT_THAT(root->layer()->sublayers(), ElementsAre(b->layer()));
}

TEST_F(UIViewTest, TellsAViewOnceOfEveryMove) {
  a->addSubview(c);
  EXPECT_THAT(c->superviews, ElementsAre(a.get()));
  b->addSubview(c);
  EXPECT_THAT(c->superviews, ElementsAre(a.get(), b.get()));
  EXPECT_THAT(a->subviews(), IsEmpty());
  EXPECT_THAT(a->layer()->sublayers(), IsEmpty());
  c->removeFromSuperview();
  EXPECT_THAT(c->superviews, ElementsAre(a.get(), b.get(), nullptr));
  EXPECT_EQ(c->layer()->superlayer(), nullptr);
  c->removeFromSuperview();
  EXPECT_EQ(c->superviews.size(), 3u) << "nothing to remove";
}

TEST_F(UIViewTest, AViewMayLeaveAgainWhenItIsToldOfItsArrival) {
  a->onMove = [this] {
    if (a->superview()) a->removeFromSuperview();
  };
  root->addSubview(a);
  EXPECT_THAT(root->subviews(), IsEmpty());
  EXPECT_THAT(a->superviews, ElementsAre(root.get(), nullptr));
}

TEST_F(UIViewTest, LivesUntilItWasToldOfItsRemoval) {
  auto view = ScriptedView::create();
  root->addSubview(view);
  std::weak_ptr<UIView> weak = view;
  bool livedWhenTold = false;
  view->onMove = [&] { livedWhenTold = !weak.expired(); };
  view.reset();
  weak.lock()->removeFromSuperview();
  EXPECT_TRUE(livedWhenTold);
  EXPECT_TRUE(weak.expired());
}

TEST_F(UIViewTest, ForgetsASuperviewThatIsDestroyed) {
  auto top = ScriptedView::create();
  const auto topLayer = top->layer();
  const auto view = UIView::create();
  top->addSubview(view);
  const std::weak_ptr<UIView> weakTop = top;
  top.reset();
  EXPECT_TRUE(weakTop.expired()) << "subviews do not hold it";
  EXPECT_EQ(view->superview(), nullptr);
  EXPECT_EQ(view->layer()->superlayer(), nullptr);
  EXPECT_THAT(topLayer->sublayers(), IsEmpty());
  view->setNeedsLayout();
  root->addSubview(view);
  EXPECT_EQ(view->superview(), root);
}

TEST_F(UIViewTest, RefusesToBePutIntoItself) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  a->addSubview(b);
  EXPECT_DEATH(a->addSubview(a), "cannot be put into itself");
  EXPECT_DEATH(b->addSubview(a), "cannot be put into itself");
}

TEST_F(UIViewTest, IgnoresNull) {
  root->addSubview(nullptr);
  EXPECT_THAT(root->subviews(), IsEmpty());
}

TEST_F(UIViewTest, LaysOutOnceForManyRequests) {
  a->setNeedsLayout();
  a->setNeedsLayout();
  a->layoutIfNeeded();
  EXPECT_EQ(a->layouts, 1);
  a->layoutIfNeeded();
  EXPECT_EQ(a->layouts, 1);
  EXPECT_FALSE(a->needsLayout());
}

TEST_F(UIViewTest, LaysOutOnlyTheViewsThatAskedFromTheTopDown) {
  root->addSubview(a);
  a->addSubview(b);
  b->addSubview(c);
  root->layoutIfNeeded();
  std::vector<UIView*> order;
  for (const auto& view : {root, a, b, c}) {
    view->layouts = 0;
    view->onLayout = [&order, raw = view.get()] { order.push_back(raw); };
  }
  c->setNeedsLayout();
  a->setNeedsLayout();
  EXPECT_TRUE(root->needsLayout());
  root->layoutIfNeeded();
  EXPECT_THAT(order, ElementsAre(a.get(), c.get()));
  EXPECT_FALSE(root->needsLayout());
}

TEST_F(UIViewTest, LaysOutInOnePassWhatALayoutResizes) {
  root->addSubview(a);
  a->addSubview(b);
  root->layoutIfNeeded();
  root->onLayout = [this] { a->setFrame(root->bounds()); };
  a->onLayout = [this] { b->setFrame(a->bounds()); };
  root->setFrame(CGRectMake(0, 0, 70, 80));
  root->layoutIfNeeded();
  EXPECT_EQ(b->frame(), CGRectMake(0, 0, 70, 80));
  EXPECT_EQ(b->layouts, 2);
  EXPECT_FALSE(root->needsLayout());
}

TEST_F(UIViewTest, ALayoutThatAsksForItselfAgainWaitsForTheNextTurn) {
  root->onLayout = [this] { root->setNeedsLayout(); };
  root->layouts = 0;
  root->setNeedsLayout();
  root->layoutIfNeeded();
  EXPECT_EQ(root->layouts, 1);
  EXPECT_TRUE(root->needsLayout());
}

TEST_F(UIViewTest, ALayoutMayRemoveTheViewsThatComeAfterIt) {
  root->addSubview(a);
  root->addSubview(b);
  a->onLayout = [this] { b->removeFromSuperview(); };
  root->layoutIfNeeded();
  EXPECT_EQ(a->layouts, 1);
  EXPECT_EQ(b->layouts, 0);
}

TEST_F(UIViewTest, AChangeOfSizeAsksForLayoutAndAChangeOfPlaceDoesNot) {
  a->layoutIfNeeded();
  a->setFrame(CGRectMake(50, 50, 10, 10));
  a->setBounds(CGRectMake(3, 3, 10, 10));
  EXPECT_FALSE(a->needsLayout());
  a->setFrame(CGRectMake(50, 50, 11, 10));
  EXPECT_TRUE(a->needsLayout());
  a->layoutIfNeeded();
  a->setBounds(CGRectMake(0, 0, 11, 12));
  EXPECT_TRUE(a->needsLayout());
}

TEST_F(UIViewTest, AddingAndRemovingASubviewLaysOutTheSuperviewAndNotTheSubview) {
  a->layoutIfNeeded();
  root->addSubview(a);
  EXPECT_FALSE(a->needsLayout());
  EXPECT_TRUE(root->needsLayout());
  root->layoutIfNeeded();
  EXPECT_EQ(a->layouts, 1);
  a->removeFromSuperview();
  EXPECT_TRUE(root->needsLayout());
}

TEST_F(UIViewTest, ARequestForLayoutReachesTheWindow) {
  root->addSubview(a);
  a->addSubview(b);
  root->layoutIfNeeded();
  newRequests();
  b->setNeedsLayout();
  EXPECT_GE(newRequests(), 1);
  EXPECT_TRUE(root->needsLayout());
}

TEST_F(UIViewTest, ASubtreeThatWaitsForLayoutTakesItsRequestAlong) {
  a->addSubview(b);
  a->layoutIfNeeded();
  b->setNeedsLayout();
  root->layoutIfNeeded();
  root->addSubview(a);
  root->layoutIfNeeded();
  EXPECT_EQ(b->layouts, 2);
  b->setNeedsLayout();
  a->removeFromSuperview();
  root->layoutIfNeeded();
  EXPECT_FALSE(root->needsLayout()) << "what waits is no longer below";
  EXPECT_TRUE(a->needsLayout());
}

TEST_F(UIViewTest, AHiddenViewIsLaidOutButCausesNoDraw) {
  root->addSubview(a);
  root->layoutIfNeeded();
  a->setHidden(true);
  EXPECT_TRUE(a->isHidden());
  newRequests();
  a->setNeedsLayout();
  EXPECT_EQ(newRequests(), 0);
  root->layoutIfNeeded();
  EXPECT_EQ(a->layouts, 2);
}

TEST_F(UIViewTest, PassesItsLooksToTheLayer) {
  a->setBackgroundColor({0, 1, 0, 1});
  EXPECT_EQ(a->layer()->backgroundColor(), (CGColor{0, 1, 0, 1}));
  EXPECT_EQ(a->backgroundColor(), (CGColor{0, 1, 0, 1}));
  a->setHidden(true);
  EXPECT_TRUE(a->layer()->isHidden());
}

TEST_F(UIViewTest, MapsContentModesThatALayerKnows) {
  using enum UIViewContentMode;
  const std::pair<UIViewContentMode, CALayer::Gravity> known[] = {
      {ScaleAspectFit, CALayer::Gravity::ResizeAspect},
      {ScaleAspectFill, CALayer::Gravity::ResizeAspectFill},
      {Center, CALayer::Gravity::Center},
      {TopLeft, CALayer::Gravity::Center},  // not known: stays as it was
      {Redraw, CALayer::Gravity::Resize},
      {ScaleToFill, CALayer::Gravity::Resize},
  };
  for (const auto& [mode, gravity] : known) {
    a->setContentMode(mode);
    EXPECT_EQ(a->contentMode(), mode);
    EXPECT_EQ(a->layer()->contentsGravity(), gravity) << static_cast<int>(mode);
  }
}

/// A view made of others from the start.
class Composite : public UIView {
 public:
  static std::shared_ptr<Composite> create() { return std::shared_ptr<Composite>(new Composite); }
  const std::shared_ptr<CALayer> picture = CALayer::create();
  const std::shared_ptr<UIView> child = UIView::create();

 protected:
  Composite() : UIView(CGRectZero) {
    layer()->addSublayer(picture);
    addSubview(child);
  }
};

TEST_F(UIViewTest, SubclassesMayBuildThemselvesInTheirConstructor) {
  const auto composite = Composite::create();
  EXPECT_EQ(composite->picture->superlayer(), composite->layer());
  EXPECT_EQ(composite->child->superview(), composite);
  EXPECT_THAT(composite->layer()->sublayers(),
              ElementsAre(composite->picture, composite->child->layer()));
}

}  // namespace
}  // namespace zaffo
