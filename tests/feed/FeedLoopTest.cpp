// SPDX-License-Identifier: Apache-2.0

// What a run of the program sounds like, and shows, where its clips start again.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FeedRun.h"
#include "Recording.h"
#include "loading/LoopSound.h"
#include "media/Clips.h"

namespace zaffo::feed {
namespace {

class FeedLoopTest : public testing::Test {
 protected:
  Recording record(const std::string& script, const std::vector<std::string>& clips,
                   const std::string& loop = "looping") {
    FeedRun::Arguments arguments{"--loop", loop, "--audio-out", "a.wav", "-e", script};
    for (const auto& name : clips) arguments.push_back(test::clip(name));
    run.run(headless(arguments));
    EXPECT_EQ(run.status(), 0) << run.errors();
    return Recording(run.text("a.wav"));
  }
  /// How loud the steady tone is in 20 ms from a time on.
  static double toneAt(const Recording& sound, double start) {
    return sound.amplitude(LoopTone::kFrequency, start, 0.02);
  }

  FeedRun run;
};

// The steady tone lasts 1 s, a round of its loop 0.9 s, and the first round fades in.

TEST_F(FeedLoopTest, TheSoundOfALoopHasNoPauseNoStepAndNoDip) {
  const auto sound = record("wait-frame; wait 3", {"loop_tone_aac.mp4"});
  const double start = sound.soundStart(0.001f), end = sound.soundEnd();
  ASSERT_GE(start, 0);
  ASSERT_GE(end, start + 2.8) << "three seams at least";
  const double slope =
      2 * std::numbers::pi * LoopTone::kFrequency * LoopTone::kAmplitude / sound.rate;
  EXPECT_LE(sound.largestStep(start, end - 0.01), 1.1 * slope);
  // The copies are a fifth of a cycle apart: half and half they make 0.81 of one.
  for (double at = start + 0.9; at < end - 0.03; at += 0.01) {
    EXPECT_GE(toneAt(sound, at), 0.78 * LoopTone::kAmplitude) << at - start;
    EXPECT_LE(toneAt(sound, at), 1.02 * LoopTone::kAmplitude) << at - start;
  }
}

TEST_F(FeedLoopTest, AClipPlayedWholePausesBeforeItStartsAgain) {
  const auto sound = record("wait-frame; wait 2.4", {"loop_tone_aac.mp4"}, "single");
  const double start = sound.soundStart();
  ASSERT_GE(start, 0);
  EXPECT_LT(sound.longestSilence(start, start + 0.98), 0.001);
  EXPECT_GT(sound.longestSilence(start + 0.95, start + 1.5), 0.005);
  EXPECT_GT(sound.soundEnd(), start + 1.5) << "it has started again";
}

TEST_F(FeedLoopTest, WithoutLoopingAClipIsHeardOnce) {
  const auto sound = record("wait-frame; wait 2.4", {"loop_tone_aac.mp4"}, "none");
  const double start = sound.soundStart();
  ASSERT_GE(start, 0);
  EXPECT_NEAR(sound.soundEnd(), start + 1, 0.03);
  EXPECT_GT(sound.seconds(), start + 2);
}

TEST_F(FeedLoopTest, ThePicturesAreInStepWithTheSoundPastASeam) {
  // A round of 3.9 s: this plays on from 3.55 s in the clip, and stops at 1.3 s in the next copy.
  const auto sound = record(
      "wait-frame; pause; seek 3.5; play; wait 1.65; pause; shot a.png; wait 0.2", {"h264_30.mp4"});
  constexpr double kWindow = 0.02, kStep = 0.002;
  const double end = sound.soundEnd();
  ASSERT_GE(end, 1);
  const auto isTone = [&](double start, int second) {
    return sound.amplitude(test::toneOfSecond(second), start, kWindow) > 0.25;
  };
  // The end of the sound is so long after the tone of another second, or of another copy, ended.
  int second = 0;
  while (second < 3 && !isTone(end - 2 * kWindow, second)) ++second;
  double begin = end - 2 * kWindow;
  while (begin > 0 && isTone(begin, second)) begin -= kStep;
  begin += kWindow / 2;
  const double position = (second == 0 ? 0.05 : second) + end - begin;
  const int frame = readPNG(run.file("a.png")).frameNumber();
  ASSERT_GE(frame, 0);
  EXPECT_LT(position, 3) << "it is past the seam";
  EXPECT_NEAR(position, (frame + 0.5) / 30, 0.05);
}

// Fading in

TEST_F(FeedLoopTest, TheVideoThatComesIntoViewFirstFadesIn) {
  const auto sound = record("wait-frame; wait 1.5", {"loop_tone_3_s.mov"});
  const double start = sound.soundStart(0.001f);
  ASSERT_GE(start, 0);
  for (const double at : {0.2, 0.5, 0.8, 1.1})
    EXPECT_NEAR(toneAt(sound, start + at), LoopTone::kAmplitude * (at + 0.01) / 2, 0.02) << at;
}

TEST_F(FeedLoopTest, ANeighbourThatWasLoadedBeforehandIsHeardAtItsFullVolume) {
  const auto sound = record("wait-frame; wait 1; next; wait-frame; wait 0.5",
                            {"video_only.mp4", "loop_tone_3_s.mov"});
  const double start = sound.soundStart();
  ASSERT_GE(start, 0);
  for (double at = start + 0.02; at < sound.soundEnd() - 0.03; at += 0.05)
    EXPECT_NEAR(toneAt(sound, at), LoopTone::kAmplitude, 0.02) << at - start;
}

}  // namespace
}  // namespace zaffo::feed
