// SPDX-License-Identifier: Apache-2.0

// What a run sends to the sound device, and when.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FeedRun.h"
#include "Recording.h"
#include "media/Clips.h"

namespace zaffo::feed {
namespace {

class FeedSoundTest : public testing::Test {
 protected:
  Recording record(const std::string& script, const std::vector<std::string>& clips) {
    FeedRun::Arguments arguments{"--loop", "single", "--audio-out", "a.wav", "-e", script};
    for (const auto& name : clips) arguments.push_back(test::clip(name));
    run.run(headless(arguments));
    EXPECT_EQ(run.status(), 0) << run.errors();
    return Recording(run.text("a.wav"));
  }

  FeedRun run;
};

TEST_F(FeedSoundTest, EachSecondOfTheClipIsHeardAsItsOwnTone) {
  const auto sound = record("wait-frame; wait 2.5", {"h264_30.mp4"});
  ASSERT_GE(sound.rate, 44100u);
  const double start = sound.soundStart();
  ASSERT_GE(start, 0);
  for (int second = 0; second < 2; ++second) {
    const double from = start + second + 0.25;
    EXPECT_NEAR(sound.amplitude(test::toneOfSecond(second), from, 0.5), 0.5, 0.05) << second;
    EXPECT_LT(sound.amplitude(test::toneOfSecond(second + 1), from, 0.5), 0.05) << second;
  }
}

TEST_F(FeedSoundTest, TheSoundIsInStepWithThePictures) {
  const auto sound = record("wait-frame; wait 1.5; pause; shot a.png; wait 0.3", {"h264_30.mp4"});
  const double start = sound.soundStart();
  ASSERT_GE(start, 0);
  double end = start;
  for (double at = start; sound.amplitude(400, at, 0.02) >= 0; at += 0.01) {
    if (std::max(sound.amplitude(300, at, 0.02), sound.amplitude(400, at, 0.02)) > 0.2) end = at;
  }
  const int frame = readPNG(run.file("a.png")).frameNumber();
  ASSERT_GE(frame, 0);
  EXPECT_NEAR(end + 0.02 - start, frame / 30.0, 0.15);
}

TEST_F(FeedSoundTest, VolumeAndPauseAreHeard) {
  const auto sound =
      record("wait-frame; volume 0.5; wait 0.6; pause; wait 0.4; volume 0; play; wait 0.3",
             {"h264_30.mp4"});
  const double start = sound.soundStart();
  ASSERT_GE(start, 0);
  EXPECT_NEAR(sound.amplitude(300, start + 0.25, 0.2), 0.25, 0.04);
  const double length = static_cast<double>(sound.left.size()) / sound.rate;
  EXPECT_LT(sound.amplitude(300, length - 0.2, 0.15), 0.01);
}

TEST_F(FeedSoundTest, OnlyTheVideoInViewIsHeard) {
  const auto sound = record("wait-frame; wait 0.5; pause; next; wait-frame; volume 0; wait 0.6",
                            {"h264_30.mp4", "mono.mp4"});
  const double length = static_cast<double>(sound.left.size()) / sound.rate;
  EXPECT_LT(sound.amplitude(300, length - 0.3, 0.25), 0.01);
}

}  // namespace
}  // namespace zaffo::feed
