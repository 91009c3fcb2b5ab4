// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "PixelBuffers.h"
#include "VirtualDisplay.h"
#include "WindowTestSupport.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/MainLoop.h"

namespace zaffo {
namespace {

/// A real window of a virtual X server, drawn by the renderer that the parameter names.
class DisplayWindow : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    display = VirtualDisplay::start();
    if (!display) GTEST_SKIP() << "Xvfb is not installed";
    setenv("SDL_RENDER_DRIVER", GetParam(), 1);
    options.title = "zaffo test window";
    options.size = {200, 300};
    NSErrorPtr error;
    window = Window::create(options, &error);
    ASSERT_TRUE(window) << error->localizedDescription();
    window->setInputHandler([this](const InputEvent& event) { events.push_back(event); });
    ASSERT_TRUE(waitUntil([&] { return window->presentedPictures() > 0; }));
  }
  /// The display may go only after the window has: a worker waits for its render thread, then the
  /// main queue lets it go.
  void TearDown() override {
    window = nullptr;
    dispatch_wait_until_idle();
    MainLoop::runTurn();
    unsetenv("SDL_RENDER_DRIVER");
  }

  std::shared_ptr<TestLayer> addTestLayer(CGRect frame) {
    auto layer = TestLayer::create();
    layer->setFrame(frame);
    window->rootView()->layer()->addSublayer(layer);
    return layer;
  }
  /// What the screen shows of the window once the latest change is on it.
  CGImagePtr screen() {
    // The first picture may have been listed before the change.
    for (int n = 0; n < 2; ++n) {
      const uint64_t before = window->presentedPictures();
      window->rootView()->layer()->setNeedsDisplay();
      EXPECT_TRUE(waitUntil([&] { return window->presentedPictures() > before; }));
    }
    return VirtualDisplay::screenshot(200, 300);
  }
  [[nodiscard]] std::size_t count(InputEvent::Type type) const {
    return static_cast<std::size_t>(std::count_if(
        events.begin(), events.end(), [&](const InputEvent& each) { return each.type == type; }));
  }
  [[nodiscard]] const InputEvent* last(InputEvent::Type type) const {
    const auto found = std::find_if(events.rbegin(), events.rend(),
                                    [&](const InputEvent& each) { return each.type == type; });
    return found == events.rend() ? nullptr : &*found;
  }

  std::unique_ptr<VirtualDisplay> display;
  Window::Options options;
  std::shared_ptr<Window> window;
  std::vector<InputEvent> events;
};

using Type = InputEvent::Type;

TEST_P(DisplayWindow, ShowsOnTheScreenWhatASnapshotShows) {
  if (!hasProgram("import")) GTEST_SKIP() << "ImageMagick's import is not installed";
  const std::vector<BufferKind> kinds{
      {CVPixelFormat::I420, CVColorMatrix::BT601, CVColorRange::Limited},
      {CVPixelFormat::I420, CVColorMatrix::BT601, CVColorRange::Full},
      {CVPixelFormat::I420, CVColorMatrix::BT709, CVColorRange::Limited},
      {CVPixelFormat::I420, CVColorMatrix::BT709, CVColorRange::Full},
      {CVPixelFormat::NV12, CVColorMatrix::BT601, CVColorRange::Limited},
      {CVPixelFormat::NV12, CVColorMatrix::BT709, CVColorRange::Limited},
      {CVPixelFormat::I420P10, CVColorMatrix::BT2020, CVColorRange::Limited},
      {CVPixelFormat::I444, CVColorMatrix::BT709, CVColorRange::Limited},
  };
  // Each kind upright on the left, and turned or mirrored on the right.
  for (std::size_t n = 0; n < kinds.size(); ++n) {
    const auto buffer = makeQuarters(46, 50, kinds[n]);
    const double y = 30.0 * static_cast<double>(n);
    addTestLayer({{2, y}, {60, 28}})->show(buffer);
    addTestLayer({{70, y}, {40, 28}})->show(buffer, static_cast<int>(n % 4), n >= 4);
  }
  auto faded = addTestLayer({{120, 10}, {60, 60}});
  faded->setBackgroundColor({1, 0, 0, 1});
  faded->setContents(makeImage(4, 4, [](int x, int) {
    return x < 2 ? Pixel{0, 0, 128, 128} : Pixel{0, 255, 0, 255};
  }));
  faded->setOpacity(0.5);
  auto mask = addTestLayer({{120, 100}, {30, 30}});
  mask->setMasksToBounds(true);
  auto clipped = TestLayer::create();
  clipped->setFrame({{-20, -20}, {80, 80}});
  mask->addSublayer(clipped);
  clipped->show(makeQuarters(20, 20), 3);

  const CGImagePtr shown = screen(), expected = snapshotOf(window);
  ASSERT_TRUE(shown);
  int differing = 0;
  for (int row = 0; row < 300; ++row) {
    for (int x = 0; x < 200; ++x) {
      Pixel pixel = pixelAt(shown, x, row);
      pixel.alpha = 255;
      differing += distance(pixel, pixelAt(expected, x, row)) > 8;
    }
  }
  // Edges between quarters may fall a fraction of a pixel apart, and a graphics processor blurs
  // them: it interpolates chroma that was moved to where it takes it to lie.
  EXPECT_LT(differing, 200 * 300 / 30);
  if (const char* folder = std::getenv("ZAFFO_TEST_PICTURES")) {
    const std::string base = std::string(folder) + "/" + GetParam();
    EXPECT_EQ(shown->writePNG(base + "-screen.png"), nullptr);
    EXPECT_EQ(expected->writePNG(base + "-snapshot.png"), nullptr);
  }
}

TEST_P(DisplayWindow, DrawsNothingWhileNothingChanges) {
  ASSERT_TRUE(waitUntil([&] { return MainLoop::runTurn(100'000'000) == 0; }));
  const uint64_t drawn = window->presentedPictures();
  EXPECT_EQ(MainLoop::runTurn(200'000'000), 0);
  EXPECT_EQ(window->presentedPictures(), drawn);
}

TEST_P(DisplayWindow, TakesAnotherTitleAndFillsTheDisplay) {
  if (!hasProgram("xdotool")) GTEST_SKIP() << "xdotool is not installed";
  window->setTitle("another title");
  EXPECT_FALSE(window->isFullScreen());
  window->setFullScreen(true);
  EXPECT_TRUE(window->isFullScreen());
  window->setFullScreen(false);
  EXPECT_FALSE(window->isFullScreen());
  VirtualDisplay::act("search --sync --name '^another title$'");
}

TEST_P(DisplayWindow, SaysWhenItIsHiddenAndShownAgain) {
  if (!hasProgram("xdotool")) GTEST_SKIP() << "xdotool is not installed";
  VirtualDisplay::act("search --name 'zaffo test window' windowunmap");
  ASSERT_TRUE(waitUntil([&] { return count(Type::Hide) > 0; }));
  const std::size_t shown = count(Type::Show);
  VirtualDisplay::act("search --name 'zaffo test window' windowmap");
  EXPECT_TRUE(waitUntil([&] { return count(Type::Show) > shown; }));
}

TEST_P(DisplayWindow, TellsTheControlKeyWithTheWheel) {
  if (!hasProgram("xdotool")) GTEST_SKIP() << "xdotool is not installed";
  VirtualDisplay::act("search --name 'zaffo test window' windowfocus --sync");
  VirtualDisplay::act("mousemove 70 80 keydown ctrl click 5 keyup ctrl");
  ASSERT_TRUE(waitUntil([&] { return count(Type::Wheel) == 1; }));
  EXPECT_TRUE(last(Type::Wheel)->withControl);
}

TEST_P(DisplayWindow, ReportsKeysWheelAndDragsOfThePointer) {
  if (!hasProgram("xdotool")) GTEST_SKIP() << "xdotool is not installed";
  VirtualDisplay::act("search --name 'zaffo test window' windowfocus --sync");
  VirtualDisplay::act("key Down key space key q");
  ASSERT_TRUE(waitUntil([&] { return count(Type::KeyDown) == 3; }));
  EXPECT_EQ(events[events.size() - 3].key, "Down");
  EXPECT_EQ(events[events.size() - 2].key, "Space");
  EXPECT_EQ(events[events.size() - 1].key, "Q");

  VirtualDisplay::act("mousemove 50 60 mousedown 1 mousemove 50 90 mouseup 1 mousemove 10 10");
  ASSERT_TRUE(waitUntil([&] { return count(Type::PointerUp) == 1; }));
  EXPECT_EQ(last(Type::PointerDown)->position, (CGPoint{50, 60}));
  EXPECT_EQ(last(Type::PointerMove)->position, (CGPoint{50, 90}));
  EXPECT_EQ(last(Type::PointerUp)->position, (CGPoint{50, 90}));

  VirtualDisplay::act("mousemove 70 80 click 5");
  ASSERT_TRUE(waitUntil([&] { return count(Type::Wheel) == 1; }));
  EXPECT_EQ(last(Type::Wheel)->wheelY, 1);  // towards what lies below
  EXPECT_EQ(last(Type::Wheel)->position, (CGPoint{70, 80}));
  EXPECT_EQ(count(Type::PointerMove), 1u);  // a pointer that is up does not drag
  EXPECT_GT(last(Type::Wheel)->hostTime, 0);
}

TEST_P(DisplayWindow, FollowsTheSizeOfTheWindow) {
  if (!hasProgram("xdotool")) GTEST_SKIP() << "xdotool is not installed";
  if (!hasProgram("import")) GTEST_SKIP() << "ImageMagick's import is not installed";
  window->rootView()->setBackgroundColor({0, 0, 1, 1});
  VirtualDisplay::act("search --name 'zaffo test window' windowsize 160 240");
  ASSERT_TRUE(waitUntil([&] { return window->size() == CGSize{160, 240}; }));
  ASSERT_TRUE(waitUntil([&] { return count(Type::Resize) == 1; }));
  EXPECT_EQ(window->rootView()->bounds(), CGRectMake(0, 0, 160, 240));
  auto corner = addTestLayer({{150, 230}, {10, 10}});
  corner->setBackgroundColor({1, 0, 0, 1});
  const CGImagePtr shown = screen();
  ASSERT_TRUE(shown);
  expectNear(pixelAt(shown, 5, 5), kBlue, 1);
  expectNear(pixelAt(shown, 155, 235), kRed, 1);
  const CGImagePtr image = snapshotOf(window);
  EXPECT_EQ(image->width(), 160);
  EXPECT_EQ(image->height(), 240);
}

TEST_P(DisplayWindow, MayBeLetGoFromItsOwnInputHandler) {
  if (!hasProgram("xdotool")) GTEST_SKIP() << "xdotool is not installed";
  window->setInputHandler([this](const InputEvent& event) {
    events.push_back(event);
    if (event.type == Type::KeyDown) window = nullptr;
  });
  VirtualDisplay::act("search --name 'zaffo test window' windowfocus --sync key Escape");
  ASSERT_TRUE(waitUntil([&] { return window == nullptr; }));
  EXPECT_EQ(events.back().key, "Escape");
}

INSTANTIATE_TEST_SUITE_P(EveryRenderer, DisplayWindow, testing::Values("opengl", "software"),
                         [](const auto& renderer) { return std::string(renderer.param); });

TEST(Window, WithoutADisplaySaysWhatToDo) {
  unsetenv("DISPLAY");
  unsetenv("WAYLAND_DISPLAY");
  setenv("SDL_VIDEODRIVER", "x11", 1);
  NSErrorPtr error;
  EXPECT_FALSE(Window::create({}, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), WindowErrorDomain);
  EXPECT_EQ(error->code(), static_cast<long>(WindowError::NoDisplay));
  EXPECT_NE(error->localizedDescription().find("DISPLAY"), std::string::npos);
  EXPECT_FALSE(Window::create({}, nullptr));
}

}  // namespace
}  // namespace zaffo
