// SPDX-License-Identifier: Apache-2.0

// The program in a real window.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FeedRun.h"
#include "media/Clips.h"
#include "platform/window/VirtualWayland.h"

namespace zaffo::feed {
namespace {

using test::clip;

class FeedWindowTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!hasProgram("xdotool")) GTEST_SKIP() << "xdotool is not installed";
    display = VirtualDisplay::start();
    if (!display) GTEST_SKIP() << "Xvfb is not installed";
    run.start({"--no-sound", "--size", "192x108", "--stats", "stats.json", "-e",
               "wait-frame; state", clip("h264_30.mp4"), clip("h264_24.mp4"),
               clip("video_only.mp4")});
    ASSERT_TRUE(run.waitForOutput("Player 0"));
    VirtualDisplay::act("search --name zaffo-feed windowfocus --sync");
  }
  std::vector<int> pagesShown() {
    run.wait();
    EXPECT_EQ(run.status(), 0) << run.errors();
    std::vector<int> pages;
    const auto json = run.json("stats.json");
    for (const auto& swipe : json["swipes"]) {
      pages.push_back(swipe["page"]);
      EXPECT_TRUE(swipe["error"].is_null()) << swipe;
    }
    return pages;
  }

  std::unique_ptr<VirtualDisplay> display;
  FeedRun run;
};

TEST_F(FeedWindowTest, KeysTurnThePagesAndEndTheProgram) {
  VirtualDisplay::act("key Down key Next key Up key space key space key q");
  EXPECT_THAT(pagesShown(), testing::ElementsAre(1, 2, 3, 2));
}

TEST_F(FeedWindowTest, TheWheelAndTheMouseTurnThePages) {
  VirtualDisplay::act("search --name zaffo-feed mousemove --window %1 50 90 click 5");
  VirtualDisplay::act(
      "search --name zaffo-feed mousemove --window %1 50 70 mousedown 1 "
      "mousemove --window %1 50 40 mousemove --window %1 50 10 mouseup 1");
  VirtualDisplay::act("key q");
  EXPECT_THAT(pagesShown(), testing::ElementsAre(1, 2, 3));
}

TEST(FeedWindowOnWayland, ShowsOnePageAfterTheOtherAndEnds) {
  const auto display = VirtualWayland::start();
  if (!display) GTEST_SKIP() << "weston or Xvfb is not installed";
  FeedRun run;
  run.run({"--no-sound", "--stats", "stats.json", "-e",
           "wait-frame; wait 0.5; next; wait-frame; wait 0.5; quit", clip("h264_30.mp4"),
           clip("video_only.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  const auto json = run.json("stats.json");
  ASSERT_EQ(json["swipes"].size(), 2u);
  for (const auto& swipe : json["swipes"]) {
    EXPECT_TRUE(swipe["error"].is_null()) << swipe;
    EXPECT_GT(swipe["frames_shown"], 1) << swipe;
  }
}

}  // namespace
}  // namespace zaffo::feed
