// SPDX-License-Identifier: Apache-2.0
#include "PixelBuffers.h"
#include "WindowTestSupport.h"

namespace zaffo {
namespace {

class OffscreenWindow : public testing::Test {
 protected:
  std::shared_ptr<CALayer> addLayer(CGRect frame, CGColor color) {
    auto layer = CALayer::create();
    layer->setFrame(frame);
    layer->setBackgroundColor(color);
    root()->addSublayer(layer);
    return layer;
  }
  std::shared_ptr<TestLayer> addTestLayer(CGRect frame) {
    auto layer = TestLayer::create();
    layer->setFrame(frame);
    root()->addSublayer(layer);
    return layer;
  }
  const std::shared_ptr<CALayer>& root() { return window->rootView()->layer(); }
  /// Runs until nothing is left to draw.
  void settle() {
    ASSERT_TRUE(waitUntil([&] { return window->presentedPictures() > 0; }));
    CGImagePtr drawn = snapshotOf(window);
  }

  std::shared_ptr<Window> window = makeOffscreenWindow({40, 60}, 1000);
};

TEST_F(OffscreenWindow, IsBlackAndOpaqueWhereNothingIsDrawn) {
  const CGImagePtr image = snapshotOf(window);
  ASSERT_EQ(image->width(), 40);
  ASSERT_EQ(image->height(), 60);
  EXPECT_EQ(pixelAt(image, 0, 0), kBlack);
  EXPECT_EQ(pixelAt(image, 39, 59), kBlack);
}

TEST_F(OffscreenWindow, DrawsAsManyPixelsAPointAsItsScaleSays) {
  Window::Options options;
  options.offscreen = true;
  options.size = {40, 60};
  options.scale = 2;
  window = Window::create(options, nullptr);
  EXPECT_EQ(window->scale(), 2);
  addLayer({{10, 20}, {5, 6}}, {1, 0, 0, 1});
  const CGImagePtr image = snapshotOf(window);
  ASSERT_EQ(image->width(), 80);
  ASSERT_EQ(image->height(), 120);
  EXPECT_EQ(pixelAt(image, 20, 40), kRed);
  EXPECT_EQ(pixelAt(image, 29, 51), kRed);
  EXPECT_EQ(pixelAt(image, 30, 51), kBlack);
}

TEST_F(OffscreenWindow, DrawsBackgroundColoursWhereTheirLayersAre) {
  addLayer({{10, 20}, {5, 6}}, {1, 0, 0, 1});
  const CGImagePtr image = snapshotOf(window);
  for (int y = 0; y < 60; ++y) {
    for (int x = 0; x < 40; ++x) {
      const bool inside = x >= 10 && x < 15 && y >= 20 && y < 26;
      ASSERT_EQ(pixelAt(image, x, y), inside ? kRed : kBlack) << x << "," << y;
    }
  }
}

TEST_F(OffscreenWindow, DrawsLaterSublayersAboveEarlierOnesAndSublayersAboveTheirParent) {
  auto first = addLayer({{0, 0}, {20, 20}}, {1, 0, 0, 1});
  addLayer({{10, 0}, {20, 20}}, {0, 1, 0, 1});
  auto child = CALayer::create();
  child->setFrame({{0, 10}, {20, 10}});
  child->setBackgroundColor({0, 0, 1, 1});
  first->addSublayer(child);
  const CGImagePtr image = snapshotOf(window);
  EXPECT_EQ(pixelAt(image, 5, 5), kRed);
  EXPECT_EQ(pixelAt(image, 15, 5), kGreen);
  EXPECT_EQ(pixelAt(image, 5, 15), kBlue);
  EXPECT_EQ(pixelAt(image, 15, 15), kGreen);
}

TEST_F(OffscreenWindow, MixesTranslucentColoursWithWhatLiesBelow) {
  addLayer({{0, 0}, {20, 20}}, {1, 1, 1, 1});
  addLayer({{0, 0}, {20, 20}}, {1, 0, 0, 0.5});
  expectNear(pixelAt(snapshotOf(window), 5, 5), {255, 127, 127}, 1);
}

TEST_F(OffscreenWindow, MultipliesOpacityDownTheTree) {
  auto parent = addLayer({{0, 0}, {20, 20}}, {});
  parent->setOpacity(0.5);
  auto child = CALayer::create();
  child->setFrame({{0, 0}, {20, 20}});
  child->setBackgroundColor({1, 1, 1, 1});
  child->setOpacity(0.5);
  parent->addSublayer(child);
  expectNear(pixelAt(snapshotOf(window), 5, 5), {64, 64, 64}, 1);
}

TEST_F(OffscreenWindow, LeavesOutHiddenLayersWithAllBelowThem) {
  auto parent = addLayer({{0, 0}, {20, 20}}, {1, 0, 0, 1});
  auto child = CALayer::create();
  child->setFrame({{0, 0}, {20, 20}});
  child->setBackgroundColor({0, 1, 0, 1});
  parent->addSublayer(child);
  parent->setHidden(true);
  EXPECT_EQ(pixelAt(snapshotOf(window), 5, 5), kBlack);
}

TEST_F(OffscreenWindow, ClipsSublayersOnlyWhereALayerMasksToItsBounds) {
  auto parent = addLayer({{10, 10}, {10, 10}}, {1, 0, 0, 1});
  auto child = CALayer::create();
  child->setFrame({{-5, -5}, {30, 10}});
  child->setBackgroundColor({0, 1, 0, 1});
  parent->addSublayer(child);
  EXPECT_EQ(pixelAt(snapshotOf(window), 6, 6), kGreen);
  parent->setMasksToBounds(true);
  const CGImagePtr masked = snapshotOf(window);
  EXPECT_EQ(pixelAt(masked, 6, 6), kBlack);
  EXPECT_EQ(pixelAt(masked, 10, 10), kGreen);
  EXPECT_EQ(pixelAt(masked, 19, 14), kGreen);
  EXPECT_EQ(pixelAt(masked, 20, 14), kBlack);
  EXPECT_EQ(pixelAt(masked, 19, 15), kRed);
}

TEST_F(OffscreenWindow, MovesSublayersByTheOriginOfTheBounds) {
  auto parent = addLayer({{0, 0}, {40, 60}}, {});
  parent->setBounds({{0, 100}, {40, 60}});
  auto child = CALayer::create();
  child->setFrame({{0, 110}, {10, 10}});
  child->setBackgroundColor({1, 0, 0, 1});
  parent->addSublayer(child);
  const CGImagePtr image = snapshotOf(window);
  EXPECT_EQ(pixelAt(image, 5, 15), kRed);
  EXPECT_EQ(pixelAt(image, 5, 25), kBlack);
}

TEST_F(OffscreenWindow, MapsContentsByTheirGravity) {
  auto layer = addLayer({{0, 0}, {40, 20}}, {0, 0, 0, 1});
  layer->setMasksToBounds(true);
  layer->setContents(makeImage(10, 10, [](int x, int y) { return quarter(x, y, 10, 10); }));

  layer->setContentsGravity(CALayer::Gravity::Resize);
  CGImagePtr image = snapshotOf(window);
  EXPECT_EQ(pixelAt(image, 1, 1), kRed);
  EXPECT_EQ(pixelAt(image, 38, 18), kYellow);

  layer->setContentsGravity(CALayer::Gravity::ResizeAspect);  // 20 wide in the middle
  image = snapshotOf(window);
  EXPECT_EQ(pixelAt(image, 9, 10), kBlack);
  EXPECT_EQ(pixelAt(image, 10, 1), kRed);
  EXPECT_EQ(pixelAt(image, 29, 1), kGreen);
  EXPECT_EQ(pixelAt(image, 30, 1), kBlack);

  layer->setContentsGravity(CALayer::Gravity::ResizeAspectFill);  // 40 high, the middle half seen
  image = snapshotOf(window);
  EXPECT_EQ(pixelAt(image, 1, 1), kRed);
  EXPECT_EQ(pixelAt(image, 1, 18), kBlue);
  EXPECT_EQ(pixelAt(image, 38, 21), kBlack);

  layer->setContentsGravity(CALayer::Gravity::Center);  // at 15,5, pixel by pixel
  image = snapshotOf(window);
  EXPECT_EQ(pixelAt(image, 14, 5), kBlack);
  EXPECT_EQ(pixelAt(image, 15, 5), kRed);
  EXPECT_EQ(pixelAt(image, 24, 14), kYellow);
  EXPECT_EQ(pixelAt(image, 25, 14), kBlack);
}

TEST_F(OffscreenWindow, DrawsTranslucentContentsOverTheBackground) {
  auto layer = addLayer({{0, 0}, {10, 10}}, {0, 0, 1, 1});
  layer->setContents(makeImage(2, 2, [](int, int) { return Pixel{128, 0, 0, 128}; }));
  expectNear(pixelAt(snapshotOf(window), 5, 5), {128, 0, 127}, 1);
  layer->setOpacity(0.5);
  expectNear(pixelAt(snapshotOf(window), 5, 5), {64, 0, 96}, 2);
}

TEST_F(OffscreenWindow, TurnsMovingPicturesClockwiseAfterMirroringThem) {
  // Corners in reading order of red, green / blue, yellow.
  const std::array<std::array<Pixel, 4>, 8> expected{{
      {kRed, kGreen, kBlue, kYellow},
      {kBlue, kRed, kYellow, kGreen},
      {kYellow, kBlue, kGreen, kRed},
      {kGreen, kYellow, kRed, kBlue},
      {kGreen, kRed, kYellow, kBlue},
      {kYellow, kGreen, kBlue, kRed},
      {kBlue, kYellow, kRed, kGreen},
      {kRed, kBlue, kGreen, kYellow},
  }};
  auto layer = addTestLayer({{4, 6}, {20, 30}});
  const CVPixelBufferPtr buffer = makeQuarters(32, 32);
  for (int way = 0; way < 8; ++way) {
    layer->show(buffer, way % 4, way >= 4);
    const CGImagePtr image = snapshotOf(window);
    const auto& corners = expected[static_cast<std::size_t>(way)];
    const std::string name = "way " + std::to_string(way);
    expectNear(pixelAt(image, 5, 7), corners[0], 2, name + " top left");
    expectNear(pixelAt(image, 22, 7), corners[1], 2, name + " top right");
    expectNear(pixelAt(image, 5, 34), corners[2], 2, name + " bottom left");
    expectNear(pixelAt(image, 22, 34), corners[3], 2, name + " bottom right");
    EXPECT_EQ(pixelAt(image, 3, 7), kBlack);
    EXPECT_EQ(pixelAt(image, 24, 35), kBlack);
  }
}

TEST_F(OffscreenWindow, DrawsTurnedPicturesThatStickOutWhereTheyWouldBe) {
  auto layer = addTestLayer({{-10, -15}, {20, 30}});  // only its last quarter is in the window
  layer->show(makeQuarters(32, 32), 1);
  const CGImagePtr image = snapshotOf(window);
  expectNear(pixelAt(image, 5, 5), kGreen, 2);
  EXPECT_EQ(pixelAt(image, 10, 5), kBlack);
  EXPECT_EQ(pixelAt(image, 5, 15), kBlack);
}

TEST_F(OffscreenWindow, FadesMovingPicturesWithTheirLayer) {
  auto layer = addTestLayer({{0, 0}, {20, 20}});
  layer->setOpacity(0.5);
  const auto white = makeBuffer({}, 16, 16, [](int, int) { return kWhite; });
  for (const int turns : {0, 1}) {
    layer->show(white, turns);
    expectNear(pixelAt(snapshotOf(window), 10, 10), {128, 128, 128}, 2);
  }
}

TEST_F(OffscreenWindow, ShowsOnlyTheCleanAperture) {
  PixelBufferPainter painter({}, 32, 32);
  painter.crop(8, 4, 16, 20);
  auto layer = addTestLayer({{0, 0}, {40, 60}});
  layer->show(painter.paint(
      [](int x, int y) { return x >= 8 && x < 24 && y >= 4 && y < 24 ? kBlue : kRed; }));
  const CGImagePtr image = snapshotOf(window);
  for (const int x : {0, 20, 39}) {
    for (const int y : {0, 30, 59}) expectNear(pixelAt(image, x, y), kBlue, 2);
  }
}

TEST_F(OffscreenWindow, TellsLayersWhatWasPutOnScreenAndWhen) {
  auto layer = addTestLayer({{0, 0}, {10, 10}});
  const auto buffer = makeQuarters(16, 16);
  layer->show(buffer);
  int64_t presentedAt = 0;
  window->setPresentHandler([&](int64_t time) { presentedAt = time; });
  ASSERT_TRUE(waitUntil([&] { return presentedAt != 0; }));
  ASSERT_EQ(layer->presented.size(), 1u);
  EXPECT_EQ(layer->presented[0].first, buffer);
  EXPECT_EQ(layer->presented[0].second, presentedAt);
  ASSERT_EQ(layer->askedAt.size(), 1u);
  EXPECT_LE(layer->askedAt[0], presentedAt);
}

TEST_F(OffscreenWindow, DoesNotAskLayersThatCannotBeSeenForAPicture) {
  auto below = addTestLayer({{0, 60}, {40, 60}});
  auto hidden = addTestLayer({{0, 0}, {10, 10}});
  hidden->setHidden(true);
  auto seen = addTestLayer({{0, 59}, {10, 10}});
  settle();
  EXPECT_TRUE(below->askedAt.empty());
  EXPECT_TRUE(hidden->askedAt.empty());
  EXPECT_FALSE(seen->askedAt.empty());
}

TEST_F(OffscreenWindow, LaysTheViewsOutBeforeItDraws) {
  class Filler : public UIView {
   public:
    Filler() : UIView(CGRectZero) {}
    void layoutSubviews() override {
      UIView::layoutSubviews();
      for (const auto& subview : subviews()) subview->setFrame(bounds());
    }
  };
  const auto filler = std::make_shared<Filler>();
  const auto child = UIView::create();
  child->setBackgroundColor({1, 0, 0, 1});
  filler->addSubview(child);
  window->rootView()->addSubview(filler);
  filler->setFrame({{10, 10}, {10, 10}});
  EXPECT_EQ(pixelAt(snapshotOf(window), 19, 19), kRed);
}

TEST_F(OffscreenWindow, GivesNoCallbackOnceItIsGone) {
  auto layer = addTestLayer({{0, 0}, {10, 10}});
  layer->show(makeQuarters(16, 16));
  bool called = false;
  window->setPresentHandler([&](int64_t) { called = true; });
  window->snapshot([&](CGImagePtr) { called = true; });
  ASSERT_TRUE(waitUntil([&] { return !layer->askedAt.empty(); }));
  const std::weak_ptr<UIView> view = window->rootView();
  window = nullptr;
  EXPECT_TRUE(view.expired());
  // A later window's picture comes after everything the first one could still have sent.
  const auto other = makeOffscreenWindow({8, 8});
  ASSERT_TRUE(waitUntil([&] { return other->presentedPictures() > 0; }));
  EXPECT_FALSE(called);
  EXPECT_TRUE(layer->presented.empty());
}

TEST_F(OffscreenWindow, MayBeLetGoFromItsOwnPresentHandler) {
  const std::weak_ptr<Window> weak = window;
  window->setPresentHandler([&](int64_t) { window = nullptr; });
  EXPECT_TRUE(waitUntil([&] { return weak.expired(); }));
}

}  // namespace
}  // namespace zaffo
