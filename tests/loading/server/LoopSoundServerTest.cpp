// SPDX-License-Identifier: Apache-2.0

// A loop through a real sound server, in real time.

#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <string>
#include <vector>

#include "doubles/MainLoopUntil.h"
#include "doubles/SoundServer.h"
#include "doubles/TestVideo.h"
#include "loading/LoopSound.h"
#include "loading/ZFLoopingVideoPlayerItemLoader.h"
#include "media/Clips.h"
#include "platform/dispatch/DispatchQueue.h"
#include "pool/PlayerDecorator.h"
#include "pool/PlayerManager.h"

namespace zaffo {
namespace {

constexpr double kRate = 48000;
constexpr int64_t kPatience = 20'000'000'000;  // nanoseconds

class LoopSoundServerTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!SoundServer::installed()) GTEST_SKIP() << "pulseaudio and parec are not installed";
    server = std::make_unique<SoundServer>();
  }

  /// Plays the loop of a clip on the default device.
  bool play(const std::string& name) {
    ZFLoopingVideoPlayerItemLoader::createWithURL(NSURL::fileURLWithPath(test::clip(name)))
        ->loadAVPlayerItemWithOptions(
            {}, [this](const std::shared_ptr<AVPlayerItem>& item, double loop, double) {
              dispatch_async(dispatch_get_main_queue(), [this, item, loop] { lend(item, loop); });
            });
    if (!runMainLoopUntil([this] { return player != nullptr; }, kPatience)) return false;
    player->setRate(1);
    return true;
  }
  void lend(const std::shared_ptr<AVPlayerItem>& item, double loop) {
    loopSeconds = loop;
    manager->loadPlayer(std::make_shared<TestVideo>("loop"), item, {},
                        [this](const PlayerLoadResult& result) { player = result.player(); });
  }

  /// The next frame of what the server plays, left channel only; nothing when the listener ended.
  static std::optional<float> hear(const ChildProcess& listener) {
    float frame[2];
    if (std::fread(frame, sizeof frame, 1, listener.output()) != 1) return std::nullopt;
    return frame[0];
  }
  /// Listens to a tenth of a second of silence.
  static bool hearSilence(const ChildProcess& listener) {
    for (int silent = 0; silent < kRate / 10;) {
      const auto frame = hear(listener);
      if (!frame) return false;
      silent = *frame == 0 ? silent + 1 : 0;
    }
    return true;
  }
  /// The next `frames` frames, from the first sound on.
  static std::vector<float> hear(const ChildProcess& listener, std::size_t frames) {
    std::vector<float> heard;
    while (heard.size() < frames) {
      const auto frame = hear(listener);
      if (!frame) break;
      if (!heard.empty() || *frame != 0.0f) heard.push_back(*frame);
    }
    return heard;
  }

  std::unique_ptr<SoundServer> server;
  std::shared_ptr<PlayerManager> manager = PlayerManager::create();
  std::shared_ptr<PlayerDecorator> player;
  double loopSeconds = 0;
};

/// How far every `stride`th of the `count` frames that are heard from a frame on is from what it
/// should be, as a share of the tone, when the first frame heard is frame `lag` of the loop.
double errorOf(const std::vector<float>& heard, const ExpectedSound& wanted, std::size_t from,
               std::size_t count, int lag, std::size_t stride = 1) {
  double sum = 0;
  for (std::size_t i = from; i < from + count; i += stride)
    sum += std::pow(heard[i] - wanted.at((static_cast<double>(i) + lag) / kRate), 2);
  return std::sqrt(sum * static_cast<double>(stride) / static_cast<double>(count)) /
         LoopTone::kAmplitude;
}

/// The frame of the loop that was heard first: of the first round, for media time moves on while
/// the device opens.
int firstFrameHeard(const std::vector<float>& heard, const ExpectedSound& wanted) {
  constexpr std::size_t kStride = 48;
  const auto round = static_cast<std::size_t>(wanted.loopSeconds * kRate);
  int lag = 0;
  double least = 1e9;
  for (int candidate = 0; candidate < static_cast<int>(round); ++candidate) {
    const double error = errorOf(heard, wanted, round, round, candidate, kStride);
    if (error < least) lag = candidate, least = error;
  }
  return lag;
}

/// Seconds to the first 10 ms that are not as they should be, after those in which the device finds
/// its place. One frame too many or too few would be 0.04 of the tone from there on.
std::optional<double> firstFault(const std::vector<float>& heard, const ExpectedSound& wanted) {
  constexpr std::size_t kWindow = 480, kStart = 4800;
  const int lag = firstFrameHeard(heard, wanted);
  for (std::size_t at = kStart; at + kWindow <= heard.size(); at += kWindow) {
    if (errorOf(heard, wanted, at, kWindow, lag) > 0.002) return static_cast<double>(at) / kRate;
  }
  return std::nullopt;
}

TEST_F(LoopSoundServerTest, NothingIsDroppedOrRepeatedOverTenSeams) {
  // Where a machine has no time for it the server falls behind, and the sound skips to be in step
  // again. A fault of the loop would be there each time.
  constexpr int kTries = 8;
  std::string faults;
  for (int i = 0; i < kTries; ++i) {
    const auto listener = server->listen();
    ASSERT_TRUE(hearSilence(*listener));
    ASSERT_TRUE(play("loop_tone_0.3_s.mov"));
    ASSERT_NEAR(loopSeconds, 0.2, 1e-6);
    const auto frames = static_cast<std::size_t>(11 * loopSeconds * kRate);
    const auto heard = hear(*listener, frames);
    ASSERT_EQ(heard.size(), frames);
    const auto fault = firstFault(heard, {LoopTone::at, loopSeconds, 0});
    if (!fault) return;
    faults += " " + std::to_string(*fault);
    player.reset();
    manager->removeAllPlayers();
  }
  FAIL() << "first faults, in seconds:" << faults;
}

}  // namespace
}  // namespace zaffo
