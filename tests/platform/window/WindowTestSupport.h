// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <utility>
#include <vector>

#include "doubles/MainLoopUntil.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/MainLoop.h"
#include "platform/uikit/CALayer.h"
#include "platform/window/Window.h"

namespace zaffo {

/// A layer whose moving picture a test scripts, and which remembers what was put on screen.
class TestLayer : public CALayer {
 public:
  [[nodiscard]] static std::shared_ptr<TestLayer> create() {
    return std::shared_ptr<TestLayer>(new TestLayer);
  }
  std::optional<LayerPicture> picture(int64_t hostNanoseconds) override {
    askedAt.push_back(hostNanoseconds);
    return script ? script(hostNanoseconds) : std::nullopt;
  }
  std::optional<int64_t> nextPictureTime() override { return plan ? plan() : std::nullopt; }
  void didPresent(const CVPixelBufferPtr& buffer, int64_t hostNanoseconds) override {
    presented.emplace_back(buffer, hostNanoseconds);
  }
  /// Shows one picture, stretched over the whole layer.
  void show(CVPixelBufferPtr buffer, int quarterTurns = 0, bool mirrored = false) {
    script = [=, this](int64_t) { return LayerPicture{buffer, bounds(), quarterTurns, mirrored}; };
    setNeedsDisplay();
  }

  std::function<std::optional<LayerPicture>(int64_t)> script;
  std::function<std::optional<int64_t>()> plan;
  std::vector<int64_t> askedAt;
  std::vector<std::pair<CVPixelBufferPtr, int64_t>> presented;
};

/// Runs the main loop until `condition` holds; false when it takes far longer than it may.
[[nodiscard]] inline bool waitUntil(const std::function<bool()>& condition) {
  return runMainLoopUntil(condition, 10'000'000'000);
}

struct Pixel {
  int red = 0, green = 0, blue = 0, alpha = 255;
  bool operator==(const Pixel&) const = default;
};
inline std::ostream& operator<<(std::ostream& out, const Pixel& p) {
  return out << "(" << p.red << " " << p.green << " " << p.blue << " " << p.alpha << ")";
}

inline constexpr Pixel kBlack{0, 0, 0}, kWhite{255, 255, 255}, kRed{255, 0, 0}, kGreen{0, 255, 0},
    kBlue{0, 0, 255}, kYellow{255, 255, 0};

[[nodiscard]] inline Pixel pixelAt(const CGImagePtr& image, int x, int y) {
  const uint8_t* p = image->pixels() + image->stride() * static_cast<std::size_t>(y) + 4 * x;
  return {p[2], p[1], p[0], p[3]};
}

[[nodiscard]] inline int distance(const Pixel& a, const Pixel& b) {
  return std::max({std::abs(a.red - b.red), std::abs(a.green - b.green), std::abs(a.blue - b.blue),
                   std::abs(a.alpha - b.alpha)});
}

inline void expectNear(const Pixel& actual, const Pixel& expected, int tolerance,
                       const std::string& where = "") {
  EXPECT_LE(distance(actual, expected), tolerance)
      << where << " is " << actual << " instead of " << expected;
}

/// A still picture of `width` by `height` painted pixel by pixel.
[[nodiscard]] inline CGImagePtr makeImage(int width, int height,
                                          const std::function<Pixel(int x, int y)>& paint) {
  std::vector<uint8_t> pixels;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const Pixel p = paint(x, y);
      for (const int byte : {p.blue, p.green, p.red, p.alpha}) {
        pixels.push_back(static_cast<uint8_t>(byte));
      }
    }
  }
  return std::make_shared<const CGImage>(width, height, std::size_t{4} * width, std::move(pixels));
}

/// Red, green, blue and yellow quarters, in reading order.
[[nodiscard]] inline Pixel quarter(int x, int y, int width, int height) {
  if (y < height / 2) return x < width / 2 ? kRed : kGreen;
  return x < width / 2 ? kBlue : kYellow;
}

[[nodiscard]] inline std::shared_ptr<Window> makeOffscreenWindow(CGSize size,
                                                                 double framesPerSecond = 60) {
  Window::Options options;
  options.size = size;
  options.offscreen = true;
  options.framesPerSecond = framesPerSecond;
  NSErrorPtr error;
  auto window = Window::create(options, &error);
  EXPECT_TRUE(window) << (error ? error->localizedDescription() : "");
  return window;
}

/// The tree of `window` as it stands now.
[[nodiscard]] inline CGImagePtr snapshotOf(const std::shared_ptr<Window>& window) {
  CGImagePtr image;
  window->snapshot([&](CGImagePtr made) { image = std::move(made); });
  EXPECT_TRUE(waitUntil([&] { return image != nullptr; }));
  return image;
}

/// After each test: a window that went leaves its render thread to a worker, and itself to the main
/// queue; both are waited for, so that the process does not end before its threads.
class WindowsAreGone final : public testing::EmptyTestEventListener {
  void OnTestEnd(const testing::TestInfo& /*test*/) override {
    dispatch_wait_until_idle();
    MainLoop::runTurn();
    dispatch_wait_until_idle();
  }
};

inline const bool kWindowsAreGoneAfterEachTest = [] {
  testing::UnitTest::GetInstance()->listeners().Append(new WindowsAreGone);
  return true;
}();

}  // namespace zaffo
