// SPDX-License-Identifier: Apache-2.0

// The program on the test clips, from the outside.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <utility>

#include "FeedRun.h"
#include "media/Clips.h"

namespace zaffo::feed {
namespace {

using test::clip;
using testing::AllOf;
using testing::Ge;
using testing::HasSubstr;
using testing::Le;
using testing::Not;

class FeedRunTest : public testing::Test {
 protected:
  /// A headless run of `script` over clips and files as they are, not trimmed to loop.
  void feed(const std::string& script, const std::vector<std::string>& inputs,
            FeedRun::Arguments options = {}) {
    options.insert(options.begin(), {"--loop", "single"});
    feedLooping(script, inputs, options);
  }
  /// One of clips as they are played unless told otherwise.
  void feedLooping(const std::string& script, const std::vector<std::string>& inputs,
                   FeedRun::Arguments options = {}) {
    run.feed(script, inputs, std::move(options));
  }
  [[nodiscard]] int frameIn(const std::string& picture) const { return run.frameIn(picture); }

  FeedRun run;
};

// The command line

TEST_F(FeedRunTest, HelpAndVersionSucceed) {
  run.run({"--help"});
  EXPECT_EQ(run.status(), 0);
  EXPECT_THAT(run.output(), HasSubstr("--headless"));
  run.run({"--version"});
  EXPECT_EQ(run.status(), 0);
  EXPECT_THAT(run.output(), HasSubstr("zaffo-feed "));
}

TEST_F(FeedRunTest, NothingToPlayEndsWithTwo) {
  run.run({});
  EXPECT_EQ(run.status(), 2);
  EXPECT_THAT(run.errors(), HasSubstr("nothing to play"));
  run.run({"--headless", std::filesystem::path(run.file("x")).parent_path().string()});
  EXPECT_EQ(run.status(), 2);
  EXPECT_THAT(run.errors(), HasSubstr("no video in the folder"));
}

TEST_F(FeedRunTest, AMistakeInAScriptEndsWithTwoBeforeAnythingIsShown) {
  feed("wait-frame; shot a.png; jump", {clip("h264_30.mp4")});
  EXPECT_EQ(run.status(), 2);
  EXPECT_THAT(run.errors(), HasSubstr("-e:1:25: unknown word 'jump'"));
  EXPECT_FALSE(std::filesystem::exists(run.file("a.png")));
}

TEST_F(FeedRunTest, AMistakeInAScriptFileNamesTheFile) {
  std::ofstream(run.file("script")) << "next\n  wait long\n";
  run.run(headless({"--script", "script", clip("h264_30.mp4")}));
  EXPECT_EQ(run.status(), 2);
  EXPECT_THAT(run.errors(), HasSubstr("script:2:8: 'long' is not a number"));
}

TEST_F(FeedRunTest, APageThatIsNotThereIsAMistake) {
  feed("next; goto 3", {clip("h264_30.mp4"), clip("portrait.mp4")});
  EXPECT_EQ(run.status(), 2);
  EXPECT_THAT(run.errors(), HasSubstr("-e:1:7: there is no page 3; the last one is 2"));
}

TEST_F(FeedRunTest, AListOnStandardInputIsTheFeedAndBeginsWhereItIsTold) {
  run.input = clip("missing.mp4") + "\n" + clip("h264_30.mp4") + "\n";
  run.run(headless({"--start", "2", "-e", "wait-frame; status", "-"}));
  EXPECT_EQ(run.status(), 0) << run.errors();
  EXPECT_THAT(run.output(), HasSubstr("page 2 of 2: h264_30.mp4, playing"));
}

TEST_F(FeedRunTest, AStartBeyondTheLastPageEndsWithTwo) {
  run.run(headless({"--start", "3", clip("h264_30.mp4")}));
  EXPECT_EQ(run.status(), 2);
  EXPECT_THAT(run.errors(), HasSubstr("there is no page 3; the last one is 1"));
}

TEST_F(FeedRunTest, AScriptThatCannotBeReadEndsWithTwo) {
  run.run(headless({"--script", "missing", clip("h264_30.mp4")}));
  EXPECT_EQ(run.status(), 2);
  EXPECT_THAT(run.errors(), HasSubstr("missing: cannot be read"));
}

TEST_F(FeedRunTest, WithoutADisplayAWindowIsRefusedWithAHint) {
  run.environment = {{"DISPLAY", ""}, {"WAYLAND_DISPLAY", ""}, {"XDG_RUNTIME_DIR", run.file("")}};
  run.run({"--no-sound", clip("h264_30.mp4")});
  EXPECT_EQ(run.status(), 1);
  EXPECT_THAT(run.errors(), HasSubstr("--headless needs no display"));
}

TEST_F(FeedRunTest, WhatThePlayersTellIsPrintedWhenItIsAskedFor) {
  feed("wait-frame", {clip("h264_30.mp4")}, {"--fast"});
  EXPECT_EQ(run.output(), "");
  feed("wait-frame", {clip("h264_30.mp4")}, {"--fast", "--trace"});
  EXPECT_THAT(run.output(), HasSubstr(" - Setup reader at time 0.0\n"));
}

TEST_F(FeedRunTest, FilesThatCannotBeWrittenEndWithOne) {
  feed("wait-frame; shot no/such/folder.png; shot b.png", {clip("h264_30.mp4")},
       {"--stats", "no/stats.json"});
  EXPECT_EQ(run.status(), 1);
  EXPECT_THAT(run.errors(), HasSubstr("script, line 1, column 13: no/such/folder.png"));
  EXPECT_THAT(run.errors(), HasSubstr("no/stats.json: cannot be written"));
  EXPECT_TRUE(std::filesystem::exists(run.file("b.png"))) << "the script goes on";
  feed("quit", {clip("h264_30.mp4")}, {"--audio-out", "no/a.wav"});
  EXPECT_EQ(run.status(), 1);
  EXPECT_THAT(run.errors(), HasSubstr("no/a.wav"));
}

// Pictures

TEST_F(FeedRunTest, APausedVideoShowsTheVeryFrameThatWasSoughtTo) {
  feed("wait-frame; pause; seek 3.37; shot a.png; seek 0; shot b.png; seek 1; shot c.png",
       {clip("h264_30.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(frameIn("a.png"), 101);
  EXPECT_EQ(frameIn("b.png"), 0);
  EXPECT_EQ(frameIn("c.png"), 30);
}

TEST_F(FeedRunTest, APlayingVideoMovesOn) {
  feed("wait-frame; wait 1; shot a.png", {clip("h264_30.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_GE(frameIn("a.png"), 24);
  EXPECT_LE(frameIn("a.png"), 90);
}

TEST_F(FeedRunTest, AClipStartsAgainAtItsEnd) {
  feed("wait-frame; seek 1.7; wait 1; shot a.png", {clip("video_only.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_GE(frameIn("a.png"), 5);
  EXPECT_LE(frameIn("a.png"), 45) << "0.7 s into the next round";
}

TEST_F(FeedRunTest, WithoutLoopingAClipStandsOnItsLastFrame) {
  feedLooping("wait-frame; seek 1.7; wait 1; shot a.png", {clip("video_only.mp4")},
              {"--loop", "none"});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(frameIn("a.png"), 59);
}

TEST_F(FeedRunTest, AClipPlaysOnPastItsEnd) {
  feedLooping("wait-frame; pause; seek 1.89; play; wait 0.8; shot a.png; pause; state",
              {clip("video_only.mp4")}, {"--stats", "stats.json"});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_GE(frameIn("a.png"), 8);
  EXPECT_LE(frameIn("a.png"), 45) << "0.7 s into the next round";
  EXPECT_THAT(run.output(), HasSubstr("Player 0 - "));
}

TEST_F(FeedRunTest, WhatIsSoughtIsCountedThroughTheRounds) {
  feedLooping(
      "wait-frame; pause; seek 0; shot a.png; seek 1.88; shot b.png; seek 1.9; shot c.png; "
      "seek 19.95; shot d.png",
      {clip("video_only.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(frameIn("a.png"), 1) << "0.05 s into the clip";
  EXPECT_EQ(frameIn("b.png"), 57) << "1.93 s";
  EXPECT_EQ(frameIn("c.png"), 1) << "the next round";
  EXPECT_EQ(frameIn("d.png"), 30) << "1 s, in the eleventh round";
}

TEST_F(FeedRunTest, AfterItsLastCopyALoopStartsOver) {
  feedLooping("wait-frame; pause; seek 96.2; play; wait 1.2; shot a.png", {clip("video_only.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_GE(frameIn("a.png"), 8) << "51 copies of 1.9 s are 96.9 s";
  EXPECT_LE(frameIn("a.png"), 45);
}

TEST_F(FeedRunTest, AClipThatIsTooShortToLoopIsPlayedAsItIs) {
  for (const char* name : {"loop_0.1_s.mp4", "loop_0.1_s.mov", "loop_0.04_s.mp4"}) {
    feedLooping("wait-frame; pause; seek 0; shot whole.png; next; wait-frame; prev; wait-frame",
                {clip(name), clip("loop_0.12_s.mp4")}, {"--stats", "stats.json"});
    ASSERT_EQ(run.status(), 0) << run.errors();
    const auto figures = run.json("stats.json");
    for (const auto& swipe : figures["swipes"]) {
      EXPECT_TRUE(swipe["error"].is_null()) << swipe;
      EXPECT_FALSE(swipe["request_to_first_frame_ms"].is_null()) << swipe;
    }
    EXPECT_EQ(frameIn("whole.png"), 0) << "nothing is cut off";
  }
}

TEST_F(FeedRunTest, AClipThatIsTooShortToLoopStartsOverAtItsEnd) {
  feedLooping("wait-frame; wait 0.6", {clip("loop_0.1_s.mp4")}, {"--stats", "stats.json"});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_GE(run.json("stats.json")["swipes"][0]["frames_shown"], 5) << "it has three";
}

TEST_F(FeedRunTest, ALoopOfATornClipEndsInAPageWithText) {
  feedLooping("wait-frame; seek 1.4; wait 0.9; next; wait-frame",
              {clip("cut_5.mp4"), clip("h264_30.mp4")}, {"--stats", "stats.json"});
  ASSERT_EQ(run.status(), 0) << run.errors();
  const auto swipes = run.json("stats.json")["swipes"];
  ASSERT_EQ(swipes.size(), 2u);
  EXPECT_THAT(swipes[0]["error"].get<std::string>(), HasSubstr("damaged or incomplete"));
  EXPECT_TRUE(swipes[1]["error"].is_null()) << swipes[1];
}

TEST_F(FeedRunTest, PauseAndPlayHoldAndMoveThePicture) {
  feed("wait-frame; pause; wait 0.1; shot a.png; wait 0.3; shot b.png; play; wait 0.5; shot c.png",
       {clip("h264_30.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_GE(frameIn("a.png"), 0);
  EXPECT_EQ(frameIn("a.png"), frameIn("b.png"));
  EXPECT_GE(frameIn("c.png"), frameIn("b.png") + 5);
}

TEST_F(FeedRunTest, EachPageShowsItsOwnVideoFromItsStart) {
  feed(
      "wait-frame; wait 0.8; next; pause; wait-frame; wait 0.4; shot a.png; prev; pause; "
      "wait-frame; wait 0.4; shot b.png",
      {clip("h264_30.mp4"), clip("h264_24.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  // Some time may pass between `next` and `pause`; 0.8 s of playing are far from it.
  EXPECT_THAT(frameIn("a.png"), AllOf(Ge(0), Le(5)));
  EXPECT_THAT(frameIn("b.png"), AllOf(Ge(0), Le(5)))
      << "a page that is left goes back to its start";
}

TEST_F(FeedRunTest, ASwipeShowsBothPagesOnTheWay) {
  feed("wait-frame; pause; next; pause; wait-frame; shot a.png",
       {clip("h264_30.mp4"), clip("text.mp4")});
  const Picture picture = readPNG(run.file("a.png"));
  ASSERT_EQ(picture.height, 108);
  // The first page has gone up by some rows: its number is cut off from above.
  EXPECT_EQ(picture.frameNumber(), -1);
}

// What can go wrong with a video

class BadInputTest : public FeedRunTest, public testing::WithParamInterface<const char*> {};

TEST_P(BadInputTest, GivesAPageWithTextAndTheFeedGoesOn) {
  feedLooping("wait-frame; shot bad.png; next; wait-frame; pause; wait 0.4; seek 0; shot good.png",
              {clip(GetParam()), clip("h264_30.mp4")}, {"--stats", "stats.json"});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_THAT(run.errors(), HasSubstr(std::string("zaffo-feed: ") + GetParam() + ": "));
  const auto swipes = run.json("stats.json")["swipes"];
  ASSERT_EQ(swipes.size(), 2u);
  EXPECT_TRUE(swipes[0]["error"].is_string());
  EXPECT_TRUE(swipes[0]["request_to_first_frame_ms"].is_null());
  EXPECT_TRUE(swipes[1]["error"].is_null()) << swipes[1];
  EXPECT_EQ(frameIn("good.png"), 1) << "the one at 0.05 s";
  const Picture bad = readPNG(run.file("bad.png"));
  const auto bright =
      std::count_if(bad.gray.begin(), bad.gray.end(), [](int v) { return v > 200; });
  EXPECT_GT(bright, 100) << "letters";
  EXPECT_LT(bright, 6000);
}

INSTANTIATE_TEST_SUITE_P(
    Files, BadInputTest,
    testing::Values("missing.mp4", "empty.mp4", "text.mp4", "audio_only.m4a", "unknown_codec.mp4",
                    "refused_codec.mp4", "playlist_m3u8.mp4", "playlist_concat.mp4",
                    "playlist_sdp.mp4", "playlist_dash.mp4", "cut_moov_last_5.mp4", "protected.mp4",
                    "protected_with_sound.mp4", "protected.webm", "unknown_codec_with_sound.mp4",
                    "no_key_frame.mp4", "no_key_frame_with_sound.mp4"),
    [](const auto& file) { return testNameOf(file.param); });

TEST_F(FeedRunTest, TheTextOfAClipThatCannotBeDecodedSaysWhy) {
  feedLooping("wait-frame; next; wait-frame",
              {clip("protected_with_sound.mp4"), clip("unknown_codec_with_sound.mp4")});
  EXPECT_THAT(run.errors(), HasSubstr("protected_with_sound.mp4: The video is protected by "
                                      "encryption."));
  EXPECT_THAT(run.errors(), HasSubstr("with_sound.mp4: There is no decoder for \"zzzz\"."));
}

TEST_F(FeedRunTest, TheTextOfWhatIsNoVideoSaysSoInAPersonsWords) {
  feedLooping("wait-frame; next; wait-frame", {"missing.mp4", clip("audio_only.m4a")});
  EXPECT_THAT(run.errors(), HasSubstr("missing.mp4: No such file."));
  EXPECT_THAT(run.errors(), HasSubstr("audio_only.m4a: This file has sound only."));
}

TEST_F(FeedRunTest, NoBadOrStrangeClipEndsTheRun) {
  const auto inputs = strangeClips();
  std::string script = "wait-frame";
  for (std::size_t i = 0; i < inputs.size(); ++i) script += "; next; wait 0.05";
  ASSERT_GE(inputs.size(), 30u);
  feedLooping(script, inputs, {"--stats", "stats.json"});
  EXPECT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(run.json("stats.json")["swipes"].size(), inputs.size());
}

// Statistics and the pool

TEST_F(FeedRunTest, StatisticsTellWhatEachSwipeCost) {
  feedLooping("wait-frame; wait 0.5; next; wait-frame; wait 0.5; prev; wait-frame; wait 0.5",
              {clip("h264_30.mp4"), clip("h264_24.mp4")}, {"--stats", "stats.json"});
  ASSERT_EQ(run.status(), 0) << run.errors();
  const auto json = run.json("stats.json");
  ASSERT_EQ(json["swipes"].size(), 3u);
  const auto& cold = json["swipes"][0];
  EXPECT_EQ(cold["video"], "h264_30.mp4");
  EXPECT_EQ(cold["page"], 1);
  EXPECT_EQ(cold["start"], "cold");
  for (const int index : {1, 2}) {
    const auto& warm = json["swipes"][static_cast<std::size_t>(index)];
    EXPECT_EQ(warm["start"], "warm") << warm;
    EXPECT_LT(warm["request_to_completion_ms"], 20.0) << "inside the call";
  }
  for (const auto& swipe : json["swipes"]) {
    EXPECT_GE(swipe["request_to_first_frame_ms"], swipe["request_to_completion_ms"]);
    EXPECT_GE(swipe["frames_shown"], 5);
    EXPECT_LE(swipe["frames_shown"], 60);
    EXPECT_GE(swipe["frames_dropped"], 0);
    EXPECT_GT(swipe["longest_main_thread_block_ms"], 0);
    EXPECT_GE(json["longest_main_thread_block_ms"], swipe["longest_main_thread_block_ms"]);
  }
  const auto& end = json["end"];
  EXPECT_EQ(end["players"], 2);
  EXPECT_GE(end["threads"], 2);
  EXPECT_LE(end["threads"], 32);
  EXPECT_GE(end["file_descriptors"], 3);
  EXPECT_GT(end["private_bytes"], 1 << 20);
  EXPECT_GE(end["resident_bytes"], end["private_bytes"]);
  EXPECT_TRUE(json["after_50_swipes"].is_null());
}

TEST_F(FeedRunTest, StatePrintsThePool) {
  feed("wait-frame; wait 0.3; state", {clip("h264_30.mp4"), clip("h264_24.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_THAT(run.output(), HasSubstr("Player 0 - videoId: file://"));
  EXPECT_THAT(run.output(), HasSubstr("h264_30.mp4, state: Loaded, activeUses: 1\n"));
  EXPECT_THAT(run.output(), HasSubstr("Player 1 - videoId: "));
}

TEST_F(FeedRunTest, BoundsHoldThePoolToTheirNumber) {
  feed("bounds 1 1; wait-frame; wait 0.3; state", {clip("h264_30.mp4"), clip("h264_24.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_THAT(run.output(), HasSubstr("h264_30.mp4, state: Loaded, activeUses: 1\n"));
  EXPECT_THAT(run.output(), Not(HasSubstr("h264_24")));
}

TEST_F(FeedRunTest, APoolThatMayHoldNothingIsAPageWithTextUntilItMay) {
  feed("bounds 0 0; wait-frame; state; bounds 4 4; wait-frame; pause; seek 0.5; shot a.png; state",
       {clip("h264_30.mp4")}, {"--stats", "stats.json"});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_THAT(run.errors(), HasSubstr("No player available for this video"));
  EXPECT_EQ(frameIn("a.png"), 15);
  EXPECT_THAT(run.output(), HasSubstr("activeUses: 1"));
}

TEST_F(FeedRunTest, AResetOfTheMediaServicesLoadsTheFeedAnew) {
  feed(
      "wait-frame; state; reset; wait-frame; pause; seek 1; shot a.png; state; next; wait-frame; "
      "pause; wait 0.4; seek 0; shot b.png",
      {clip("h264_30.mp4"), clip("h264_24.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(frameIn("a.png"), 30);
  EXPECT_EQ(frameIn("b.png"), 0);
  EXPECT_THAT(run.output(), HasSubstr("Player 0 - "));
  EXPECT_THAT(run.output(), HasSubstr("Player 2 - ")) << "a new player for each page";
}

TEST_F(FeedRunTest, FastOnAndOffLoadTheFeedAnew) {
  feed("wait-frame; fast on; wait-frame; wait 0.2; fast off; wait-frame; pause; seek 1; shot a.png",
       {clip("h264_30.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(frameIn("a.png"), 30);
}

TEST_F(FeedRunTest, TheSameClipTwiceIsTwoPagesWithAPlayerEach) {
  feed("wait-frame; wait 0.3; next; pause; wait-frame; wait 0.4; shot a.png; state",
       {clip("h264_30.mp4"), clip("h264_30.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(frameIn("a.png"), 0);
  EXPECT_THAT(run.output(), HasSubstr("h264_30.mp4#2, state: Loaded"));
}

// Ends

TEST_F(FeedRunTest, AHeadlessRunWithoutAScriptEndsWithThePathOfAPicture) {
  run.run(headless({clip("h264_30.mp4"), clip("missing.mp4"), clip("h264_24.mp4")}));
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_GE(frameIn("zaffo-feed.png"), 20);
  const std::string output = run.output();
  EXPECT_THAT(output, HasSubstr("missing.mp4: No such file."));
  EXPECT_THAT(output, HasSubstr("players, "));
  EXPECT_THAT(output, testing::EndsWith(run.file("zaffo-feed.png") + "\n"));
}

TEST_F(FeedRunTest, ATerminalThatGoesAwayEndsItAsWell) {
  run.start(
      headless({"--stats", "stats.json", "-e", "wait-frame; state; wait 60", clip("h264_30.mp4")}));
  ASSERT_TRUE(run.waitForOutput("Player 0"));
  kill(run.pid(), SIGHUP);
  run.wait();
  EXPECT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(run.json("stats.json")["swipes"].size(), 1u);
}

TEST_F(FeedRunTest, AnInterruptedRunStillWritesWhatItMeasuredAndRecorded) {
  run.start(headless({"--stats", "stats.json", "--audio-out", "a.wav", "-e",
                      "wait-frame; state; wait 60", clip("h264_30.mp4")}));
  ASSERT_TRUE(run.waitForOutput("Player 0"));
  kill(run.pid(), SIGINT);
  run.wait();
  EXPECT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(run.json("stats.json")["swipes"].size(), 1u);
  EXPECT_EQ(run.text("a.wav").substr(0, 4), "RIFF");
}

}  // namespace
}  // namespace zaffo::feed
