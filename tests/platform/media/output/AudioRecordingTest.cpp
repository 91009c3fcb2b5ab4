// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "doubles/ManualTime.h"
#include "doubles/ScriptedAudioDevice.h"
#include "platform/media/output/AudioOutputEngine.h"

namespace zaffo::media {
namespace {

constexpr int64_t kMillisecond = kNanosecondsPerMillisecond;
constexpr int64_t kFramesPerMillisecond = AudioOutputEngine::kSampleRate / 1000;

class AudioRecordingTest : public testing::Test {
 protected:
  AudioRecordingTest() { card.plugged = false; }
  ~AudioRecordingTest() override { std::filesystem::remove(path); }

  void run(int64_t milliseconds) {
    for (int64_t done = 0; done < milliseconds; done += 10) {
      card.play(10 * kFramesPerMillisecond);
      time.advance(10 * kMillisecond);
    }
  }

  /// The left channel of what is in the file, by the sizes in its header.
  std::vector<float> recorded() const {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    uint32_t size = 0;
    std::memcpy(&size, bytes.data() + 90, sizeof size);
    std::vector<float> samples(size / sizeof(float));
    std::memcpy(samples.data(), bytes.data() + 94, size);
    std::vector<float> left;
    for (size_t i = 0; i < samples.size(); i += 2) left.push_back(samples[i]);
    return left;
  }

  /// Frames whose value is their own number within the input.
  static std::vector<float> counting(int64_t frames) {
    std::vector<float> samples;
    for (int64_t i = 0; i < frames; ++i) {
      samples.insert(samples.end(), {static_cast<float>(i), -1.0f});
    }
    return samples;
  }

  ManualTime time;
  ScriptedAudioDevice card;
  std::shared_ptr<AudioOutputEngine> output =
      AudioOutputEngine::create(dispatch_queue_create("test.audio"), card.opener());
  const std::string path =
      testing::TempDir() + testing::UnitTest::GetInstance()->current_test_info()->name() + ".wav";
};

TEST_F(AudioRecordingTest, HoldsEachFrameInItsPlaceFromTheCallOn) {
  time.advance(5000 * kMillisecond);
  ASSERT_EQ(output->startRecording(path), nullptr);
  time.settle();
  const int64_t begin = 5000 * kFramesPerMillisecond;
  run(500);
  const auto input = output->addInput(96'000);
  const int64_t first = output->earliestStartFrame();
  input->restart(first);
  input->write(counting(24'000));
  run(1000);
  output->stopRecording();
  const auto left = recorded();
  ASSERT_EQ(left.size(), static_cast<size_t>(1520 * kFramesPerMillisecond));
  for (int64_t frame = 0; frame < first - begin; ++frame) {
    ASSERT_EQ(left[static_cast<size_t>(frame)], 0.0f);
  }
  for (int64_t i = kFadeFrames; i < 24'000; ++i) {
    ASSERT_EQ(left[static_cast<size_t>(first - begin + i)], static_cast<float>(i)) << i;
  }
}

TEST_F(AudioRecordingTest, HoldsTheSilenceOfAnOutputAtRest) {
  ASSERT_EQ(output->startRecording(path), nullptr);
  run(10'000);
  output->stopRecording();
  EXPECT_EQ(recorded(), std::vector<float>(static_cast<size_t>(10'020 * kFramesPerMillisecond)));
  run(500);
  EXPECT_FALSE(output->rendering());
}

TEST_F(AudioRecordingTest, StaysInStepWhenADeviceComesAndGoes) {
  ASSERT_EQ(output->startRecording(path), nullptr);
  time.settle();
  const auto input = output->addInput(480'000);
  const int64_t first = output->earliestStartFrame();
  input->restart(first);
  input->write(counting(480'000));
  run(600);
  card.plugged = true;
  run(2000);
  ASSERT_TRUE(output->onDevice());
  card.breakDown();
  run(1000);
  output->stopRecording();
  const auto left = recorded();
  EXPECT_GE(left.size(), static_cast<size_t>(3600 * kFramesPerMillisecond));
  int64_t inPlace = 0;
  for (int64_t i = 10 * kFadeFrames; i < 170'000; ++i) {
    if (left[static_cast<size_t>(first + i)] == static_cast<float>(i)) ++inPlace;
  }
  // All but what the device skipped as it took over, and the fades around that.
  EXPECT_GE(inPlace, 170'000 - 10 * kFadeFrames - 120 * kFramesPerMillisecond);
}

TEST_F(AudioRecordingTest, IsAWholeFileWhileItGrows) {
  ASSERT_EQ(output->startRecording(path), nullptr);
  run(2000);
  const size_t early = recorded().size();
  EXPECT_GE(early, static_cast<size_t>(1700 * kFramesPerMillisecond));
  run(1000);
  EXPECT_GE(recorded().size(), early + static_cast<size_t>(900 * kFramesPerMillisecond));
  output->stopRecording();
}

TEST_F(AudioRecordingTest, AnotherRecordingEndsTheFirst) {
  const std::string other = path + ".2";
  ASSERT_EQ(output->startRecording(path), nullptr);
  run(1000);
  ASSERT_EQ(output->startRecording(other), nullptr);
  run(1000);
  output->stopRecording();
  EXPECT_EQ(recorded().size(), static_cast<size_t>(1020 * kFramesPerMillisecond));
  EXPECT_EQ(std::filesystem::file_size(other),
            static_cast<uintmax_t>(94 + 8 * 1000 * kFramesPerMillisecond));
  std::filesystem::remove(other);
}

TEST_F(AudioRecordingTest, SaysWhyItCannotBegin) {
  const auto error = output->startRecording("/nowhere/at/all.wav");
  ASSERT_NE(error, nullptr);
  EXPECT_FALSE(error->localizedDescription().empty());
  output->stopRecording();
}

}  // namespace
}  // namespace zaffo::media
