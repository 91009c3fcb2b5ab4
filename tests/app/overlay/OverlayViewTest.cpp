// SPDX-License-Identifier: Apache-2.0
#include "overlay/OverlayView.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "doubles/MainLoopUntil.h"
#include "overlay/Overlay.h"
#include "overlay/PoolRows.h"

namespace zaffo::feed {
namespace {

constexpr CGSize kWindow{405, 720};

/// A picture of a view over grey, at a density; written where ZAFFO_TEST_PICTURES says.
class OverlayViewTest : public testing::TestWithParam<double> {
 protected:
  void SetUp() override {
    Window::Options options;
    options.offscreen = true;
    options.size = kWindow;
    options.scale = GetParam();
    window = Window::create(options, nullptr);
    window->rootView()->setBackgroundColor({0.4, 0.4, 0.4, 1});
  }
  void add(const std::shared_ptr<UIView>& view) {
    view->setFrame({{0, 0}, kWindow});
    window->rootView()->addSubview(view);
  }
  CGImagePtr draw(const std::string& name) {
    CGImagePtr image;
    window->snapshot([&](const CGImagePtr& taken) { image = taken; });
    EXPECT_TRUE(runMainLoopUntil([&] { return image != nullptr; }, 10'000'000'000));
    if (const char* folder = std::getenv("ZAFFO_TEST_PICTURES")) {
      const std::string scale = GetParam() > 1 ? "2x" : "1x";
      EXPECT_EQ(image->writePNG(std::string(folder) + "/" + name + "-" + scale + ".png"), nullptr);
    }
    return image;
  }
  /// How much of a part of the window, in points, is white.
  [[nodiscard]] double white(const CGImage& image, CGRect part) const {
    const double scale = GetParam();
    int count = 0, all = 0;
    for (int y = static_cast<int>(part.origin.y * scale);
         y < (part.origin.y + part.size.height) * scale; ++y) {
      const uint8_t* row = image.pixels() + static_cast<std::size_t>(y) * image.stride();
      for (int x = static_cast<int>(part.origin.x * scale);
           x < (part.origin.x + part.size.width) * scale; ++x, ++all)
        count += row[4 * x] > 215 ? 1 : 0;
    }
    return static_cast<double>(count) / std::max(all, 1);
  }
  static OverlayState state() {
    OverlayState state;
    state.title = "A clip.mp4";
    state.page = 2;
    state.pageCount = 12;
    state.position = ClipPosition{7, 28, 56};
    return state;
  }

  std::shared_ptr<Window> window;
  const Density density = [this] { return window->scale(); };
};

TEST_P(OverlayViewTest, TheBarIsAsLongAsTheClipHasPlayed) {
  const auto view = OverlayView::create(density);
  add(view);
  view->show(state(), {.title = 1, .times = 1});
  const auto image = draw("title");
  const CGRect bar = OverlayView::barIn(kWindow);
  const double quarter = bar.size.width / 4;
  EXPECT_GT(white(*image, {bar.origin, {quarter - 1, bar.size.height}}), 0.99);
  EXPECT_EQ(white(*image,
                  {{bar.origin.x + quarter + 1, bar.origin.y}, {quarter * 3 - 2, bar.size.height}}),
            0);
  EXPECT_GT(white(*image, {{14, 640}, {100, 30}}), 0.02) << "the title";
  EXPECT_GT(white(*image, {{320, 680}, {75, 20}}), 0.02) << "the times";
}

TEST_P(OverlayViewTest, WhatHasFadedIsNotThere) {
  const auto view = OverlayView::create(density);
  add(view);
  view->show(state(), {.title = 1, .times = 1, .volume = 1, .pause = 1, .spinner = 1});
  view->show(state(), {});
  EXPECT_EQ(white(*draw("nothing"), {{0, 0}, kWindow}), 0);
}

TEST_P(OverlayViewTest, PauseAndSpinnerAreInTheMiddleAndTheVolumeAbove) {
  const auto view = OverlayView::create(density);
  add(view);
  const CGRect middle{{180, 337}, {45, 46}}, top{{140, 30}, {125, 30}};
  view->show(state(), {.title = 1, .pause = 1});
  const auto paused = draw("paused");
  EXPECT_GT(white(*paused, middle), 0.15);
  EXPECT_EQ(white(*paused, top), 0);
  view->show(state(), {.volume = 1, .spinner = 1, .spinnerStep = 3});
  const auto spinning = draw("spinner-volume");
  EXPECT_GT(white(*spinning, top), 0.03);
  EXPECT_EQ(white(*spinning, {{195, 352}, {15, 16}}), 0) << "a ring";
  EXPECT_GT(white(*spinning, {{175, 332}, {55, 56}}), 0.005);
}

TEST_P(OverlayViewTest, WhileItIsDraggedTheBarHasAHandle) {
  const auto view = OverlayView::create(density);
  add(view);
  OverlayState dragged = state();
  dragged.isScrubbing = true;
  view->show(dragged, {.title = 1, .times = 1});
  const CGRect bar = OverlayView::barIn(kWindow);
  const CGPoint handle{bar.origin.x + bar.size.width / 4, bar.origin.y + 1.5};
  EXPECT_GT(white(*draw("scrub"), {{handle.x - 4, handle.y - 4}, {8, 8}}), 0.95);
}

TEST_P(OverlayViewTest, ThePagesOfKeysAndOfThePoolFit) {
  const auto keys = Panel::create(density), pool = Panel::create(density);
  add(keys);
  keys->setRows("Keys and gestures", keyRows());
  const auto drawn = draw("keys");
  EXPECT_GT(white(*drawn, {{14, 10}, {200, 40}}), 0.02);
  EXPECT_EQ(white(*drawn, {{0, 716}, {405, 4}}), 0) << "nothing is cut off below";
  EXPECT_EQ(white(*drawn, {{402, 0}, {3, 720}}), 0) << "nor at the side";
  keys->removeFromSuperview();
  add(pool);
  pool->setRows("Pool of players",
                poolRows({.players = "Player 3 - videoId: file:///a/clip%20b.mp4, state: Loaded, "
                                     "activeUses: 1\nPlayer 1 - videoId: x, state: NotLoaded, "
                                     "activeUses: 0",
                          .most = 16,
                          .decoding = {30, 2'140'000, 7'900'000},
                          .drawing = {60, 480'000, 16'049'000}}));
  EXPECT_GT(white(*draw("pool"), {{14, 10}, {200, 40}}), 0.02);
}

INSTANTIATE_TEST_SUITE_P(Densities, OverlayViewTest, testing::Values(1.0, 2.0),
                         [](const auto& scale) { return scale.param > 1 ? "Two" : "One"; });

TEST(OverlayPlaces, TheBarCanBeTakenHoldOfNearItAndNowhereElse) {
  const CGRect bar = OverlayView::barIn(kWindow);
  EXPECT_TRUE(OverlayView::isOnBar({200, bar.origin.y - 8}, kWindow));
  EXPECT_FALSE(OverlayView::isOnBar({200, bar.origin.y - 30}, kWindow));
  EXPECT_EQ(OverlayView::fractionAt(bar.origin.x, kWindow), 0);
  EXPECT_DOUBLE_EQ(OverlayView::fractionAt(kWindow.width / 2, kWindow), 0.5);
  EXPECT_EQ(OverlayView::fractionAt(5000, kWindow), 1);
}

TEST(TimeText, IsThatOfAClock) {
  EXPECT_EQ(timeText(0.9), "0:00");
  EXPECT_EQ(timeText(67), "1:07");
  EXPECT_EQ(timeText(3723), "1:02:03");
  EXPECT_EQ(timeText(-1), "0:00");
}

TEST(PoolRows, TellEachPlayerAndTheProcess) {
  const auto rows = poolRows({.players = "Player 3 - videoId: file:///a/clip%20b.mp4#2, state: "
                                         "Loaded, activeUses: 2",
                              .most = 16,
                              .framesShown = 7,
                              .framesDropped = 1,
                              .decoding = {30, 2'140'000, 7'900'000},
                              .drawing = {60, 480'000, 16'049'000},
                              .picturesPerSecond = 29.97,
                              .memory = 12.34,
                              .threads = 9});
  EXPECT_EQ(rows[0], (Panel::Row{"Players", "1 of at most 16"}));
  EXPECT_EQ(rows[1].left, "Player 3");
  EXPECT_TRUE(rows[1].right.starts_with("clip b.mp4")) << rows[1].right;
  EXPECT_TRUE(rows[1].right.ends_with("Loaded, 2 uses")) << rows[1].right;
  EXPECT_EQ(rows[2], (Panel::Row{"Memory", "12.3 MiB"}));
  EXPECT_EQ(rows[3], (Panel::Row{"Threads", "9"}));
  EXPECT_EQ(rows[4], (Panel::Row{"Frames", "7 shown, 1 dropped"}));
  EXPECT_EQ(rows[5], (Panel::Row{"Decoding", "2.1 ms, at most 7.9 ms"}));
  EXPECT_EQ(rows[6], (Panel::Row{"Drawing", "0.5 ms, at most 16.0 ms"}));
  EXPECT_EQ(rows[7], (Panel::Row{"Pictures", "30.0 a second"}));
}

TEST(PoolRows, SayWhenNothingWasDecodedOrDrawnOfLate) {
  const auto rows = poolRows({});
  EXPECT_EQ(rows[4], (Panel::Row{"Decoding", "nothing of late"}));
  EXPECT_EQ(rows[5], (Panel::Row{"Drawing", "nothing of late"}));
}

}  // namespace
}  // namespace zaffo::feed
