// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/CubebDevice.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "doubles/MainLoopUntil.h"
#include "doubles/ManualTime.h"
#include "doubles/SoundServer.h"
#include "platform/media/output/AudioOutputEngine.h"

namespace zaffo::media {
namespace {

constexpr int64_t kRate = AudioOutputEngine::kSampleRate;
constexpr double kFrequency = 440;
constexpr float kLevel = 0.5f;

std::vector<float> tone(int64_t frames) {
  std::vector<float> samples;
  for (int64_t i = 0; i < frames; ++i) {
    const double phase = 2 * std::numbers::pi * kFrequency * static_cast<double>(i) / kRate;
    const float sample = kLevel * static_cast<float>(std::sin(phase));
    samples.insert(samples.end(), {sample, sample});
  }
  return samples;
}

bool comesTrue(const std::function<bool()>& condition) {
  return runMainLoopUntil(condition, 20 * kNanosecondsPerSecond);
}

/// The left channel of `frames` frames of what is heard, from the first sound on and past its fade.
std::vector<float> hear(const ChildProcess& listener, int64_t frames) {
  std::vector<float> left;
  float frame[2];
  while (std::fread(frame, sizeof frame, 1, listener.output()) == 1 && frame[0] == 0.0f) {
  }
  for (int64_t i = 0; i < frames + kFadeFrames; ++i) {
    if (std::fread(frame, sizeof frame, 1, listener.output()) != 1) break;
    if (i >= kFadeFrames) left.push_back(frame[0]);
  }
  return left;
}

/// That `left` is the tone, whole: the right frequency and level, and no dropout.
void expectTone(const std::vector<float>& left) {
  int crossings = 0;
  float largestStep = 0;
  double energy = 0;
  for (size_t i = 1; i < left.size(); ++i) {
    if (left[i - 1] < 0 && left[i] >= 0) ++crossings;
    largestStep = std::max(largestStep, std::abs(left[i] - left[i - 1]));
    energy += left[i] * left[i];
  }
  const double seconds = static_cast<double>(left.size()) / kRate;
  EXPECT_NEAR(crossings / seconds, kFrequency, 3);
  EXPECT_NEAR(std::sqrt(energy / static_cast<double>(left.size())), kLevel / std::numbers::sqrt2,
              0.01);
  EXPECT_LE(largestStep, 1.1 * kLevel * 2 * std::numbers::pi * kFrequency / kRate);
}

class CubebDeviceTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!SoundServer::installed()) GTEST_SKIP() << "pulseaudio and parec are not installed";
    server = std::make_unique<SoundServer>();
    output = AudioOutputEngine::create(dispatch_queue_create("test.audio"), openCubebDevice);
  }
  void TearDown() override {
    output.reset();
    dispatch_wait_until_idle();
  }

  std::unique_ptr<SoundServer> server;
  std::shared_ptr<AudioOutputEngine> output;
};

TEST_F(CubebDeviceTest, PlaysATonePastTheServersEndAndOnItsReturn) {
  auto listener = server->listen();
  const auto input = output->addInput(30 * kRate);
  input->restart(output->earliestStartFrame());
  input->write(tone(30 * kRate));
  ASSERT_TRUE(comesTrue([&] { return output->onDevice(); }));
  const auto heard = hear(*listener, 2 * kRate);
  ASSERT_EQ(heard.size(), static_cast<size_t>(2 * kRate));
  expectTone(heard);

  server->stop();
  const int64_t hostBefore = TimeSource::now();
  const int64_t shownBefore = output->clock()->nanosecondsAtHostTime(hostBefore);
  int64_t last = shownBefore;
  ASSERT_TRUE(comesTrue([&] {
    const int64_t shown = output->clock()->nanosecondsAtHostTime(TimeSource::now());
    EXPECT_GE(shown, last);
    last = shown;
    return !output->onDevice();
  }));
  const int64_t lost = output->renderedFrames();
  ASSERT_TRUE(comesTrue([&] { return output->renderedFrames() > lost + kRate / 5; }));
  const int64_t host = TimeSource::now();
  const double pace =
      static_cast<double>(output->clock()->nanosecondsAtHostTime(host) - shownBefore) /
      static_cast<double>(host - hostBefore);
  EXPECT_NEAR(pace, 1.0, 0.01);

  ASSERT_TRUE(server->start());
  listener = server->listen();
  ASSERT_TRUE(comesTrue([&] { return output->onDevice(); }));
  expectTone(hear(*listener, kRate));
}

TEST(CubebDevice, StaysAwayFromATestsOwnTime) {
  ManualTime time;
  struct Client final : AudioDeviceClient {
    void fill(std::span<float>) override {}
    void deviceFailed() override {}
  } client;
  EXPECT_EQ(openCubebDevice(48000, client), nullptr);
}

}  // namespace
}  // namespace zaffo::media
