// SPDX-License-Identifier: Apache-2.0

// What the program shows over the picture.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "FeedRun.h"
#include "media/Clips.h"

namespace zaffo::feed {
namespace {

using test::clip;

class FeedOverlayTest : public testing::Test {
 protected:
  /// Pictures of a paused video, in a feed of the size of a telephone's.
  void feed(const std::string& script, FeedRun::Arguments options = {}) {
    options.insert(options.begin(), {"--headless", "--no-sound", "--size", "405x720", "-e",
                                     "wait-frame; pause; seek 1; " + script});
    options.push_back(clip("h264_30.mp4"));
    run.run(options);
    ASSERT_EQ(run.status(), 0) << run.errors();
  }
  [[nodiscard]] Picture picture(const std::string& name) const { return readPNG(run.file(name)); }
  /// Pixels that differ within some rows.
  static int differing(const Picture& a, const Picture& b, int from, int to) {
    int count = 0;
    for (int y = from; y < to; ++y)
      for (int x = 0; x < a.width; ++x) count += std::abs(a.at(x, y) - b.at(x, y)) > 20 ? 1 : 0;
    return count;
  }
  static int bright(const Picture& picture, int from, int to) {
    int count = 0;
    for (int y = from; y < to; ++y)
      for (int x = 0; x < picture.width; ++x) count += picture.at(x, y) > 200 ? 1 : 0;
    return count;
  }

  FeedRun run;
};

TEST_F(FeedOverlayTest, IsNotInPicturesUnlessItIsAskedFor) {
  feed("shot a.png; press ?; press I; press 9; wait 0.1; shot b.png");
  EXPECT_EQ(picture("a.png").gray, picture("b.png").gray);
  EXPECT_EQ(bright(picture("a.png"), 620, 720), 0);
}

TEST_F(FeedOverlayTest, ShowsTitlePlaceAndBarBelowAndAMarkInTheMiddleWhilePaused) {
  feed("wait 0.2; shot a.png", {"--overlay"});
  const Picture shown = picture("a.png");
  EXPECT_GT(bright(shown, 650, 700), 150) << "title and place";
  const auto bar = std::count_if(shown.gray.begin() + 704 * 405, shown.gray.begin() + 705 * 405,
                                 [](int value) { return value > 240; });
  EXPECT_NEAR(bar, 377 / 3.9, 5) << "a second of a round of 3.9 s";
  feed("wait 0.2; shot b.png");
  EXPECT_GT(differing(shown, picture("b.png"), 325, 395), 2000) << "the mark";
}

TEST_F(FeedOverlayTest, FadesWhenNothingIsDone) {
  feed("play; wait 3.2; shot a.png", {"--overlay"});
  EXPECT_EQ(bright(picture("a.png"), 620, 720), 0);
}

TEST_F(FeedOverlayTest, ShowsTheVolumeWhenItChanges) {
  feed("play; press 9; wait 0.1; shot a.png", {"--overlay"});
  EXPECT_GT(bright(picture("a.png"), 28, 62), 100);
}

TEST_F(FeedOverlayTest, ShowsTheKeysAndThePoolAndClosesThem) {
  feed(
      "shot none.png; press ?; wait 0.1; shot keys.png; press I; wait 0.6; shot pool.png; "
      "press Escape; wait 0.1; shot closed.png; status",
      {"--overlay"});
  EXPECT_GT(bright(picture("keys.png"), 0, 200), 1500);
  EXPECT_GT(differing(picture("keys.png"), picture("pool.png"), 0, 720), 3000);
  EXPECT_GT(bright(picture("pool.png"), 0, 240), 800);
  EXPECT_LT(differing(picture("none.png"), picture("closed.png"), 0, 600), 100);
  EXPECT_THAT(run.output(), testing::HasSubstr("page 1 of 1")) << "it has not ended";
}

TEST_F(FeedOverlayTest, TellsHowLongDecodingAndDrawingTakeWhileAVideoPlays) {
  feed("play; press I; wait 0.6; shot a.png", {"--overlay"});
  const Picture shown = picture("a.png");
  // The rows below the one player, right of where they would end if there were no times to tell.
  const auto letters = [&](int from, int to) {
    int count = 0;
    for (int y = from; y < to; ++y)
      for (int x = 295; x < shown.width; ++x) count += shown.at(x, y) > 120 ? 1 : 0;
    return count;
  };
  EXPECT_GT(letters(191, 210), 50) << "decoding";
  EXPECT_GT(letters(215, 234), 50) << "drawing";
}

TEST_F(FeedOverlayTest, IsAsLargeAtTwiceTheDensityAndSharper) {
  feed("wait 0.2; shot a.png", {"--overlay"});
  const int one = bright(picture("a.png"), 650, 700);
  feed("wait 0.2; shot b.png", {"--overlay", "--scale", "2"});
  const Picture two = picture("b.png");
  ASSERT_EQ(two.width, 810);
  ASSERT_EQ(two.height, 1440);
  EXPECT_GT(bright(two, 1300, 1400), 3 * one);
}

TEST_F(FeedOverlayTest, ATextInPlaceOfAVideoIsAsLargeAtTwiceTheDensity) {
  for (const char* scale : {"1", "2"}) {
    run.run({"--headless", "--no-sound", "--scale", scale, "-e",
             std::string("wait-frame; shot ") + scale + ".png", "missing.mp4"});
    ASSERT_EQ(run.status(), 0) << run.errors();
  }
  const auto rows = [&](const std::string& name) {
    const Picture shown = picture(name);
    int count = 0;
    for (int y = 0; y < shown.height; ++y) count += bright(shown, y, y + 1) > 0 ? 1 : 0;
    return count;
  };
  EXPECT_NEAR(rows("2.png"), 2 * rows("1.png"), 6);
}

}  // namespace
}  // namespace zaffo::feed
