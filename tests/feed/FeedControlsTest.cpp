// SPDX-License-Identifier: Apache-2.0

// What keys, the wheel, clicks and drags do to the program.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "FeedRun.h"
#include "Recording.h"
#include "media/Clips.h"

namespace zaffo::feed {
namespace {

using test::clip;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::Le;
using testing::Not;

class FeedControlsTest : public testing::Test {
 protected:
  /// The lines of `status` that a run prints.
  std::vector<std::string> statuses(const std::string& script, FeedRun::Arguments options = {}) {
    options.insert(options.begin(), {"--loop", "single"});
    run.feed("wait-frame; " + script, {clip("h264_30.mp4"), clip("h264_24.mp4")}, options);
    EXPECT_EQ(run.status(), 0) << run.errors();
    std::vector<std::string> lines;
    std::istringstream output(run.output());
    for (std::string line; std::getline(output, line);) lines.push_back(line);
    return lines;
  }

  FeedRun run;
};

TEST_F(FeedControlsTest, SpaceAndAClickPauseAndPlay) {
  EXPECT_THAT(
      statuses("press Space; status; press Space; status; pointer down 90 50; "
               "pointer up 90 50; status"),
      ElementsAre(AllOf(HasSubstr(", paused, "), Not(HasSubstr("awake"))),
                  AllOf(HasSubstr(", playing, "), HasSubstr(", awake")), HasSubstr(", paused, ")));
}

TEST_F(FeedControlsTest, ADoubleClickAndTwoKeysFillTheScreen) {
  const auto lines = statuses(
      "pointer down 90 50; pointer up 90 50; pointer down 91 50; pointer up 91 50; status; "
      "press F; status; press F11; status; press Escape; status");
  EXPECT_THAT(lines, ElementsAre(AllOf(HasSubstr("playing"), HasSubstr("full screen")),
                                 Not(HasSubstr("full screen")), HasSubstr("full screen"),
                                 Not(HasSubstr("full screen"))));
}

TEST_F(FeedControlsTest, KeysAndTheWheelChangeTheVolume) {
  EXPECT_THAT(statuses("press 9; press 9; press 0; status; press M; status; press M; status; "
                       "press M; press \"Ctrl+wheel down\"; status; "
                       "press \"Ctrl+wheel up\"; press 0; press 0; status; volume 0.5; status"),
              ElementsAre(HasSubstr("volume 95 %"), HasSubstr("volume 95 %, muted"),
                          AllOf(HasSubstr("volume 95 %"), Not(HasSubstr("muted"))),
                          AllOf(HasSubstr("volume 90 %"), Not(HasSubstr("muted"))),
                          HasSubstr("volume 100 %"), HasSubstr("volume 50 %")));
}

TEST_F(FeedControlsTest, MutedSoundIsNotHeard) {
  run.feed("press M; wait-frame; wait 1; press M; wait 0.7", {clip("h264_30.mp4")},
           {"--audio-out", "a.wav", "--loop", "single"});
  ASSERT_EQ(run.status(), 0) << run.errors();
  const Recording sound(run.text("a.wav"));
  EXPECT_GT(sound.soundStart(), 0.8);
  EXPECT_GT(sound.soundEnd(), sound.soundStart() + 0.2) << "and then it is";
}

TEST_F(FeedControlsTest, RightAndLeftSeekFiveSecondsWithinTheClip) {
  run.feed(
      "wait-frame; pause; seek 1; press Right; wait 0.3; status; shot a.png; press Left; "
      "wait 0.3; status; shot b.png; press Right; press Left; press Right; wait 0.5; status",
      {clip("loop_10_s.mp4")}, {"--loop", "single"});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_THAT(run.output(), HasSubstr(", paused, 6.00 of 10"));
  EXPECT_THAT(run.output(), HasSubstr(", paused, 1.00 of 10"));
  EXPECT_NE(run.output().find(", paused, 6.00 of 10"), run.output().rfind(", paused, 6.00 of 10"))
      << "quick ones add up";
}

TEST_F(FeedControlsTest, ASeekDoesNotLeaveTheRoundThatIsPlayed) {
  run.feed(
      "wait-frame; pause; seek 20; press Right; wait 0.4; status; press Left; wait 0.4; status",
      {clip("video_only.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_THAT(run.output(), HasSubstr(", paused, 1.89 of 1.90 s"));
  EXPECT_THAT(run.output(), HasSubstr(", paused, 0.00 of 1.90 s"));
}

TEST_F(FeedControlsTest, ADragOnTheBarShowsTheVideoThereAndThenGoesOn) {
  // The bar runs from 14 to 178, at 92 or so.
  run.feed(
      "wait-frame; pointer down 14 92; pointer move 96 92; wait 0.4; status; shot a.png; "
      "pointer move 55 60; wait 0.4; shot b.png; pointer up 55 60; wait 0.3; status",
      {clip("h264_30.mp4"), clip("h264_24.mp4")}, {"--loop", "single"});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_THAT(run.output(), HasSubstr("page 1 of 2: h264_30.mp4, still, 2.00 of 4.00 s"));
  EXPECT_THAT(run.frameIn("a.png"), AllOf(Ge(59), Le(61)));
  EXPECT_THAT(run.frameIn("b.png"), AllOf(Ge(29), Le(31)));
  EXPECT_THAT(run.output(), HasSubstr("page 1 of 2: h264_30.mp4, playing"));
}

TEST_F(FeedControlsTest, AHiddenWindowHoldsTheVideoStillOnEveryPage) {
  EXPECT_THAT(
      statuses("window hide; status; next; wait 0.6; status; window show; status"),
      ElementsAre(AllOf(HasSubstr("still"), Not(HasSubstr("awake"))),
                  AllOf(HasSubstr("page 2 of 2"), HasSubstr("still")), HasSubstr("playing")));
}

TEST_F(FeedControlsTest, WhatWasPausedStaysSoWhenTheWindowIsShownAgain) {
  EXPECT_THAT(statuses("press Space; window hide; window show; status"),
              ElementsAre(HasSubstr("paused")));
}

TEST_F(FeedControlsTest, PagesTurnByKeysTheWheelAndDrags) {
  EXPECT_THAT(
      statuses("press Down; wait 0.6; status; press \"wheel up\"; wait 0.6; status; "
               "pointer down 90 70; pointer move 90 10; pointer up 90 10; wait 0.6; status; "
               "press Home; wait 0.6; status"),
      ElementsAre(HasSubstr("page 2 of 2"), HasSubstr("page 1 of 2"), HasSubstr("page 2 of 2"),
                  HasSubstr("page 1 of 2")));
}

TEST_F(FeedControlsTest, WhatIsLetGoOverTheWindowComesAtTheEndAndIsTurnedTo) {
  std::filesystem::create_directories(run.file("folder/below"));
  for (const char* name : {"folder/2.mp4", "folder/below/10.mp4"})
    std::filesystem::copy_file(clip("video_only.mp4"), run.file(name));
  EXPECT_THAT(statuses("drop folder; drop " + clip("portrait.mp4") +
                       "; wait 0.6; wait-frame; status; press End; wait 0.6; wait-frame; status"),
              ElementsAre(HasSubstr("page 3 of 5: 2.mp4, playing"),
                          HasSubstr("page 5 of 5: portrait.mp4, playing")))
      << "what is let go at once is turned to at its first";
}

TEST_F(FeedControlsTest, AListStandsForItsClipsUnderTheirTitles) {
  std::ofstream(run.file("list.m3u")) << "#EXTM3U\n#EXTINF:2,A title\n" + clip("video_only.mp4") +
                                             "\n" + clip("portrait.mp4") + "\n";
  EXPECT_THAT(
      statuses(
          "drop list.m3u; wait 0.6; wait-frame; status; press End; wait 0.6; wait-frame; status"),
      ElementsAre(HasSubstr("page 3 of 4: A title, playing"),
                  HasSubstr("page 4 of 4: portrait.mp4, playing")));
}

TEST_F(FeedControlsTest, QEndsIt) {
  run.feed("wait-frame; press Q; wait 60; status", {clip("h264_30.mp4")});
  EXPECT_EQ(run.status(), 0);
  EXPECT_EQ(run.output(), "");
}

}  // namespace
}  // namespace zaffo::feed
