// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "VirtualWayland.h"
#include "WindowTestSupport.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/MainLoop.h"

namespace zaffo {
namespace {

using Type = InputEvent::Type;

/// A real window of a Wayland compositor, which gives it the whole screen.
class WaylandDisplayWindow : public testing::Test {
 protected:
  void open(int scale) {
    display_ = VirtualWayland::start(scale);
    if (!display_) GTEST_SKIP() << "weston or Xvfb is not installed";
    Window::Options options;
    options.title = "zaffo test window";
    options.size = {100, 100};
    NSErrorPtr error;
    window_ = Window::create(options, &error);
    ASSERT_TRUE(window_) << error->localizedDescription();
    window_->setInputHandler([this](const InputEvent& event) { events_.push_back(event); });
    scale_ = scale;
    ASSERT_TRUE(waitUntil([&] { return window_->rootView()->bounds().size == kWhole; }));
    ASSERT_TRUE(waitUntil([&] { return window_->presentedPictures() > 0; }));
  }
  /// A worker waits for the window's render thread, then the main queue lets the window go; only
  /// then may the display go.
  void TearDown() override {
    window_ = nullptr;
    dispatch_wait_until_idle();
    MainLoop::runTurn();
  }

  [[nodiscard]] std::size_t count(Type type) const {
    return static_cast<std::size_t>(std::count_if(
        events_.begin(), events_.end(), [&](const InputEvent& each) { return each.type == type; }));
  }
  [[nodiscard]] const InputEvent* last(Type type) const {
    const auto found = std::find_if(events_.rbegin(), events_.rend(),
                                    [&](const InputEvent& each) { return each.type == type; });
    return found == events_.rend() ? nullptr : &*found;
  }
  /// A blue window with a red corner at the lower right, 10 points wide.
  void paint() {
    window_->rootView()->setBackgroundColor({0, 0, 1, 1});
    const auto corner = TestLayer::create();
    corner->setFrame({{kWhole.width - 10, kWhole.height - 10}, {10, 10}});
    corner->setBackgroundColor({1, 0, 0, 1});
    window_->rootView()->layer()->addSublayer(corner);
  }
  [[nodiscard]] CGImagePtr screenshot() const {
    const int side = VirtualWayland::kSide * scale_;
    return VirtualDisplay::screenshot(side, side);
  }
  /// Whether the screen comes to show what paint() painted; the compositor takes its time.
  [[nodiscard]] bool screenShowsPaint() const {
    const int corner = (VirtualWayland::kSide - 10) * scale_;
    return waitUntil([&] {
      const CGImagePtr shown = screenshot();
      return shown && distance(pixelAt(shown, 5, corner + 5), kBlue) <= 2 &&
             distance(pixelAt(shown, corner - 2, corner + 5), kBlue) <= 2 &&
             distance(pixelAt(shown, corner + 1, corner + 5), kRed) <= 2;
    });
  }

  static constexpr CGSize kWhole{VirtualWayland::kSide, VirtualWayland::kSide};
  int scale_ = 1;
  std::unique_ptr<VirtualWayland> display_;
  std::shared_ptr<Window> window_;
  std::vector<InputEvent> events_;
};

TEST_F(WaylandDisplayWindow, FillsTheScreenThatTheCompositorGivesIt) {
  if (!hasProgram("import")) GTEST_SKIP() << "ImageMagick's import is not installed";
  ASSERT_NO_FATAL_FAILURE(open(1));
  if (IsSkipped()) return;
  EXPECT_EQ(window_->size(), kWhole);
  paint();
  EXPECT_TRUE(screenShowsPaint());
}

TEST_F(WaylandDisplayWindow, DrawsAllPixelsOfAScreenOfHighDensity) {
  if (!hasProgram("import")) GTEST_SKIP() << "ImageMagick's import is not installed";
  ASSERT_NO_FATAL_FAILURE(open(2));
  if (IsSkipped()) return;
  EXPECT_EQ(window_->size(), kWhole);
  paint();
  // Half a point wide: only there where every pixel is drawn.
  const auto line = TestLayer::create();
  line->setFrame({{20, 0}, {0.5, 100}});
  line->setBackgroundColor({0, 1, 0, 1});
  window_->rootView()->layer()->addSublayer(line);
  EXPECT_TRUE(screenShowsPaint());
  EXPECT_EQ(snapshotOf(window_)->width(), 2 * VirtualWayland::kSide);
  const CGImagePtr shown = screenshot();
  ASSERT_TRUE(shown);
  expectNear(pixelAt(shown, 39, 100), kBlue, 2);
  expectNear(pixelAt(shown, 40, 100), kGreen, 2);
  expectNear(pixelAt(shown, 41, 100), kBlue, 2);
}

TEST_F(WaylandDisplayWindow, DrawsNothingWhileNothingChanges) {
  ASSERT_NO_FATAL_FAILURE(open(1));
  if (IsSkipped()) return;
  ASSERT_TRUE(waitUntil([&] { return MainLoop::runTurn(100'000'000) == 0; }));
  const uint64_t drawn = window_->presentedPictures();
  EXPECT_EQ(MainLoop::runTurn(200'000'000), 0);
  EXPECT_EQ(window_->presentedPictures(), drawn);
}

TEST_F(WaylandDisplayWindow, ReportsKeysAndThePointer) {
  if (!hasProgram("xdotool")) GTEST_SKIP() << "xdotool is not installed";
  ASSERT_NO_FATAL_FAILURE(open(1));
  if (IsSkipped()) return;
  // The compositor gives its input to the window some time after that is on the screen.
  ASSERT_TRUE(waitUntil([&] {
    VirtualDisplay::act("mousemove 50 60 mousedown 1 mousemove 50 90 mouseup 1");
    MainLoop::runTurn(100'000'000);
    return count(Type::PointerDown) > 0 && count(Type::PointerUp) > 0;
  }));
  // This one hears of the pointer's movements only, not of where it began.
  const CGPoint down = last(Type::PointerDown)->position, up = last(Type::PointerUp)->position;
  EXPECT_EQ(up.x - down.x, 0);
  EXPECT_EQ(up.y - down.y, 30);
  ASSERT_TRUE(waitUntil([&] {
    VirtualDisplay::act("key q");
    MainLoop::runTurn(100'000'000);
    return count(Type::KeyDown) > 0;
  }));
  EXPECT_EQ(last(Type::KeyDown)->key, "Q");
}

TEST_F(WaylandDisplayWindow, ComesAgainAfterOneHasGone) {
  ASSERT_NO_FATAL_FAILURE(open(1));
  if (IsSkipped()) return;
  window_ = nullptr;
  dispatch_wait_until_idle();
  MainLoop::runTurn();
  NSErrorPtr error;
  window_ = Window::create({}, &error);
  ASSERT_TRUE(window_) << error->localizedDescription();
  EXPECT_TRUE(waitUntil([&] { return window_->presentedPictures() > 0; }));
}

}  // namespace
}  // namespace zaffo
