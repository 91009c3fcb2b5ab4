// What a run sends to the sound device, and when.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numbers>

#include "FeedRun.h"
#include "media/Clips.h"

namespace zaffo::feed {
namespace {

/// The left channel of a 32-bit float stereo WAV.
struct Recording {
  uint32_t rate = 0;
  std::vector<float> left;

  /// How much of a frequency there is in `seconds` from `start`: its amplitude.
  [[nodiscard]] double amplitude(double frequency, double start, double seconds) const {
    const auto from = static_cast<std::size_t>(start * rate);
    const auto count = static_cast<std::size_t>(seconds * rate);
    if (from + count > left.size()) return -1;
    double cosine = 0, sine = 0;
    for (std::size_t i = 0; i < count; ++i) {
      const double angle = 2 * std::numbers::pi * frequency * static_cast<double>(i) / rate;
      cosine += left[from + i] * std::cos(angle);
      sine += left[from + i] * std::sin(angle);
    }
    return 2 * std::hypot(cosine, sine) / static_cast<double>(count);
  }
  /// Seconds to the first sample that can be heard; negative when there is none.
  [[nodiscard]] double soundStart() const {
    for (std::size_t i = 0; i < left.size(); ++i)
      if (std::abs(left[i]) > 0.02f) return static_cast<double>(i) / rate;
    return -1;
  }
};

template <typename Number>
Number numberAt(const std::string& bytes, std::size_t offset) {
  Number number{};
  if (offset + sizeof number <= bytes.size())
    std::memcpy(&number, bytes.data() + offset, sizeof number);
  return number;
}

Recording readWAV(const std::string& bytes) {
  Recording recording;
  for (std::size_t at = 12; at + 8 <= bytes.size();) {
    const std::string kind = bytes.substr(at, 4);
    const auto size = numberAt<uint32_t>(bytes, at + 4);
    if (kind == "fmt ") recording.rate = numberAt<uint32_t>(bytes, at + 12);
    if (kind == "data") {
      for (std::size_t i = at + 8; i + 8 <= std::min(at + 8 + size, bytes.size()); i += 8)
        recording.left.push_back(numberAt<float>(bytes, i));
    }
    at += 8 + size + size % 2;
  }
  return recording;
}

class FeedSoundTest : public testing::Test {
 protected:
  Recording record(const std::string& script, const std::vector<std::string>& clips) {
    FeedRun::Arguments arguments{"--loop", "single", "--audio-out", "a.wav", "-e", script};
    for (const auto& name : clips) arguments.push_back(test::clip(name));
    run.run(headless(arguments));
    EXPECT_EQ(run.status(), 0) << run.errors();
    return readWAV(run.text("a.wav"));
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
