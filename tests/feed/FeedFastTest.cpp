// SPDX-License-Identifier: Apache-2.0

// The program on the test clips with fast players, from the outside.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
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

/// What a session of a fast player says on standard output when it begins to read from the start.
constexpr const char* kSessionBegins = " - Setup reader at time 0.0\n";
constexpr const char* kStartAndEnd =
    "once at its start, once rewound as it is given back at the end";

class FeedFastTest : public testing::Test {
 protected:
  /// A headless run of `script` over clips as they are, not trimmed to loop. Its output is what the
  /// players tell.
  void feed(const std::string& script, const std::vector<std::string>& inputs,
            FeedRun::Arguments options = {"--fast", "--loop", "single"}) {
    options.push_back("--trace");
    run.feed(script, inputs, std::move(options));
  }
  [[nodiscard]] int frameIn(const std::string& picture) const { return run.frameIn(picture); }
  /// How often `text` stands in `whole`.
  [[nodiscard]] static int count(const std::string& whole, const std::string& text) {
    int found = 0;
    for (auto at = whole.find(text); at != std::string::npos; at = whole.find(text, at + 1))
      ++found;
    return found;
  }

  FeedRun run;
};

TEST_F(FeedFastTest, PlaysThroughASessionThatSaysWhatItDoes) {
  feed("wait-frame; wait 1; shot a.png", {clip("h264_30.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_THAT(frameIn("a.png"), AllOf(Ge(24), Le(90)));
  EXPECT_EQ(count(run.output(), kSessionBegins), 2) << kStartAndEnd;
  EXPECT_THAT(run.output(), HasSubstr("0 - Enqueing buffer at 0.0s\n"));
}

TEST_F(FeedFastTest, WithoutTheOptionThereIsNoSession) {
  feed("wait-frame", {clip("h264_30.mp4")}, {"--loop", "single"});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(count(run.output(), kSessionBegins), 0);
}

TEST_F(FeedFastTest, APausedVideoShowsTheVeryFrameThatWasSoughtTo) {
  feed(
      "wait-frame; pause; seek 3.37; shot a.png; seek 0; shot b.png; seek 1; shot c.png; "
      "seek 3.99; shot d.png",
      {clip("h264_30.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(frameIn("a.png"), 101);
  EXPECT_EQ(frameIn("b.png"), 0);
  EXPECT_EQ(frameIn("c.png"), 30);
  EXPECT_EQ(frameIn("d.png"), 119);
}

TEST_F(FeedFastTest, ASeekWhilePlayingGoesOnFromThere) {
  feed("wait-frame; seek 2; wait 0.5; shot a.png", {clip("h264_30.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_THAT(frameIn("a.png"), AllOf(Ge(65), Le(110)));
}

TEST_F(FeedFastTest, EachPageShowsItsOwnVideoFromItsStart) {
  feed(
      "wait-frame; wait 0.8; next; pause; wait-frame; wait 0.4; shot a.png; prev; pause; "
      "wait-frame; wait 0.4; shot b.png",
      {clip("h264_30.mp4"), clip("h264_24.mp4")}, {"--fast", "--loop", "single"});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(frameIn("a.png"), 0);
  EXPECT_EQ(frameIn("b.png"), 0) << "a page that is left goes back to its start";
}

TEST_F(FeedFastTest, SwipesToPlayersThatAreLoadedAreWarmAndShowMovingPictures) {
  feed("wait-frame; wait 0.5; next; wait-frame; wait 0.5; shot a.png; prev; wait-frame; wait 0.5",
       {clip("h264_30.mp4"), clip("h264_24.mp4")},
       {"--fast", "--loop", "single", "--stats", "stats.json"});
  ASSERT_EQ(run.status(), 0) << run.errors();
  const auto swipes = run.json("stats.json")["swipes"];
  ASSERT_EQ(swipes.size(), 3u);
  EXPECT_EQ(swipes[0]["start"], "cold");
  for (const int index : {1, 2}) {
    EXPECT_EQ(swipes[static_cast<std::size_t>(index)]["start"], "warm") << index;
  }
  for (const auto& swipe : swipes) {
    EXPECT_TRUE(swipe["error"].is_null()) << swipe;
    EXPECT_THAT(swipe["frames_shown"].get<int>(), AllOf(Ge(5), Le(60))) << swipe;
  }
  EXPECT_THAT(frameIn("a.png"), AllOf(Ge(5), Le(40)));
}

TEST_F(FeedFastTest, AClipStartsAgainAtItsEnd) {
  feed("wait-frame; seek 1.7; wait 1; shot a.png", {clip("video_only.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_THAT(frameIn("a.png"), AllOf(Ge(5), Le(45))) << "0.7 s into the next round";
  EXPECT_EQ(count(run.output(), kSessionBegins), 3) << kStartAndEnd << ", the next round";
}

TEST_F(FeedFastTest, AClipThatIsSoughtToItsEndWhilePausedStaysThereUntilItIsPlayed) {
  feed("wait-frame; pause; seek 1.99; wait 0.5; shot a.png; play; wait 0.8; shot b.png",
       {clip("video_only.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(frameIn("a.png"), 59);
  EXPECT_THAT(frameIn("b.png"), AllOf(Ge(5), Le(45))) << "the next round";
}

TEST_F(FeedFastTest, ASeekToTheEndOrBeyondItShowsTheLastFrame) {
  feed("wait-frame; pause; seek 2; shot a.png; seek 0.5; seek 100; wait 0.3; shot b.png",
       {clip("video_only.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(frameIn("a.png"), 59);
  EXPECT_EQ(frameIn("b.png"), 59);
}

TEST_F(FeedFastTest, WithoutLoopingAClipStandsOnItsLastFrame) {
  feed("wait-frame; seek 1.7; wait 1; shot a.png", {clip("video_only.mp4")},
       {"--fast", "--loop", "none"});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(frameIn("a.png"), 59);
}

TEST_F(FeedFastTest, ALoopPlaysOnPastTheEndOfItsClip) {
  feed("wait-frame; pause; seek 1.89; play; wait 0.8; shot a.png", {clip("video_only.mp4")},
       {"--fast"});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_THAT(frameIn("a.png"), AllOf(Ge(8), Le(45))) << "0.7 s into the next round";
  EXPECT_EQ(count(run.output(), kSessionBegins), 2) << kStartAndEnd << ", and none between";
}

TEST_F(FeedFastTest, WhatIsSoughtIsCountedThroughTheRounds) {
  feed(
      "wait-frame; pause; seek 0; shot a.png; seek 1.88; shot b.png; seek 1.9; shot c.png; "
      "seek 19.95; shot d.png",
      {clip("video_only.mp4")}, {"--fast"});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(frameIn("a.png"), 1) << "0.05 s into the clip";
  EXPECT_EQ(frameIn("b.png"), 57) << "1.93 s";
  EXPECT_EQ(frameIn("c.png"), 1) << "the next round";
  EXPECT_EQ(frameIn("d.png"), 30) << "1 s, in the eleventh round";
}

TEST_F(FeedFastTest, OnAndOffInMidFeedDropAndRebuildEveryPlayer) {
  feed(
      "wait-frame; wait 0.4; fast on; wait-frame; pause; seek 1; shot a.png; wait 0.4; state; next;"
      "pause; wait-frame; wait 0.4; shot b.png; fast off; wait-frame; pause; seek 1; shot c.png; "
      "prev; pause; wait-frame; wait 0.4; shot d.png; state",
      {clip("h264_30.mp4"), clip("h264_24.mp4")}, {"--loop", "single"});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(frameIn("a.png"), 30);
  EXPECT_EQ(frameIn("b.png"), 0);
  EXPECT_EQ(frameIn("c.png"), 24);
  EXPECT_EQ(frameIn("d.png"), 0);
  for (const int player : {2, 3, 4, 5}) {
    EXPECT_THAT(run.output(), HasSubstr("Player " + std::to_string(player) + " - ")) << player;
  }
  EXPECT_THAT(run.output(), Not(HasSubstr("Player 6 - ")));
}

TEST_F(FeedFastTest, ARotatedClipIsUpright) {
  for (const bool isFast : {false, true}) {
    FeedRun::Arguments options{"--loop", "single"};
    if (isFast) options.push_back("--fast");
    for (const int degrees : {90, 180, 270}) {
      const std::string name = "rotated_" + std::to_string(degrees);
      feed("wait-frame; pause; seek 0.5; shot a.png", {clip(name + ".mp4")}, options);
      ASSERT_EQ(run.status(), 0) << run.errors();
      std::filesystem::copy_file(run.file("a.png"),
                                 run.file(name + (isFast ? ".fast" : ".native")));
    }
  }
  for (const int degrees : {90, 180, 270}) {
    const std::string name = "rotated_" + std::to_string(degrees);
    const Picture fast = readPNG(run.file(name + ".fast"));
    ASSERT_GT(fast.width, 0);
    EXPECT_EQ(fast.gray, readPNG(run.file(name + ".native")).gray) << "as a native player shows it";
  }
}

TEST_F(FeedFastTest, PlayersAreReplacedInASmallPool) {
  std::string script = "bounds 2 2; wait-frame";
  for (int round = 0; round < 3; ++round) script += "; goto 4; wait-frame; goto 1; wait-frame";
  script += "; pause; wait 0.4; seek 0.5; shot a.png; state";
  feed(script,
       {clip("h264_30.mp4"), clip("h264_24.mp4"), clip("video_only.mp4"), clip("portrait.mp4")});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(frameIn("a.png"), 15);
  EXPECT_LE(count(run.output(), ", state: "), 2);
}

class FastBadInputTest : public FeedFastTest, public testing::WithParamInterface<const char*> {};

TEST_P(FastBadInputTest, GivesAPageWithTextAndTheFeedGoesOn) {
  feed("wait-frame; next; wait-frame; pause; wait 0.4; seek 0; shot good.png",
       {clip(GetParam()), clip("h264_30.mp4")},
       {"--fast", "--loop", "single", "--stats", "stats.json"});
  ASSERT_EQ(run.status(), 0) << run.errors();
  EXPECT_THAT(run.errors(), HasSubstr(std::string("zaffo-feed: ") + GetParam() + ": "));
  const auto swipes = run.json("stats.json")["swipes"];
  ASSERT_EQ(swipes.size(), 2u);
  EXPECT_TRUE(swipes[0]["error"].is_string());
  EXPECT_TRUE(swipes[0]["request_to_first_frame_ms"].is_null());
  EXPECT_TRUE(swipes[1]["error"].is_null()) << swipes[1];
  EXPECT_EQ(frameIn("good.png"), 0);
}

INSTANTIATE_TEST_SUITE_P(Files, FastBadInputTest,
                         testing::Values("missing.mp4", "empty.mp4", "text.mp4", "audio_only.m4a",
                                         "unknown_codec.mp4", "refused_codec.mp4",
                                         "cut_moov_last_5.mp4", "protected.mp4",
                                         "protected_with_sound.mp4", "protected.webm",
                                         "unknown_codec_with_sound.mp4", "no_key_frame.mp4",
                                         "no_key_frame_with_sound.mp4"),
                         [](const auto& file) { return testNameOf(file.param); });

TEST_F(FeedFastTest, TheTextOfAClipThatCannotBeDecodedSaysWhy) {
  for (const char* loop : {"single", "looping"}) {
    feed("wait-frame; next; wait-frame",
         {clip("protected_with_sound.mp4"), clip("unknown_codec_with_sound.mp4")},
         {"--fast", "--loop", loop});
    EXPECT_THAT(run.errors(), HasSubstr("protected_with_sound.mp4: The video is protected by "
                                        "encryption."));
    EXPECT_THAT(run.errors(), HasSubstr("with_sound.mp4: There is no decoder for \"zzzz\"."));
  }
}

TEST_F(FeedFastTest, NoBadOrStrangeClipEndsTheRun) {
  const auto inputs = strangeClips();
  std::string script = "wait-frame";
  for (std::size_t i = 0; i < inputs.size(); ++i) script += "; next; wait 0.05";
  ASSERT_GE(inputs.size(), 30u);
  feed(script, inputs, {"--fast", "--loop", "single", "--stats", "stats.json"});
  EXPECT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(run.json("stats.json")["swipes"].size(), inputs.size());
}

}  // namespace
}  // namespace zaffo::feed
