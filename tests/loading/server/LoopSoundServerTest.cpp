// A loop through a real sound server, in real time.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <optional>

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

/// What was heard of a loop, beside what should have been.
class Heard {
 public:
  Heard(std::vector<float> samples, double loopSeconds)
      : samples_(std::move(samples)), wanted_{LoopTone::at, loopSeconds, 0} {
    // Media time moves on while the device opens, so that the first sound is one of the first
    // round.
    constexpr std::size_t kStride = 48;
    const auto round = static_cast<std::size_t>(loopSeconds * kRate);
    double least = 1e9;
    for (int candidate = 0; candidate < static_cast<int>(round); ++candidate) {
      const double error = errorOf(samples_, wanted_, round / 2, round, candidate, kStride);
      if (error < least) lag_ = candidate, least = error;
    }
  }

  /// The start of the first 10 ms that are not as they should be. One frame too many or too few
  /// would be 0.04 of the tone from there on.
  [[nodiscard]] std::optional<std::size_t> firstFault() const {
    constexpr std::size_t kStartFade = 240;
    for (std::size_t at = kStartFade; at + kWindow <= samples_.size(); at += kWindow) {
      if (errorOf(samples_, wanted_, at, kWindow, lag_) > 0.002) return at;
    }
    return std::nullopt;
  }
  /// Whether the server was left without sound there: it plays silence then.
  [[nodiscard]] bool isSilentFrom(std::size_t at) const {
    const auto end = std::min(at + 2 * kWindow, samples_.size());
    int silent = 0;
    for (std::size_t i = at; i < end && silent < 48; ++i)
      silent = samples_[i] == 0 ? silent + 1 : 0;
    return silent == 48;
  }

 private:
  static constexpr std::size_t kWindow = 480;
  std::vector<float> samples_;
  ExpectedSound wanted_;
  int lag_ = 0;
};

TEST_F(LoopSoundServerTest, NothingIsDroppedOrRepeatedOverTenSeams) {
  // A machine that is busy with other things may starve the server now and then.
  constexpr int kTries = 8;
  for (int i = 0; i < kTries; ++i) {
    const auto listener = server->listen();
    ASSERT_TRUE(hearSilence(*listener));
    ASSERT_TRUE(play("loop_tone_0.3_s.mov"));
    ASSERT_NEAR(loopSeconds, 0.2, 1e-6);
    const auto frames = static_cast<std::size_t>(10.5 * loopSeconds * kRate);
    auto samples = hear(*listener, frames);
    ASSERT_EQ(samples.size(), frames);
    const Heard heard(std::move(samples), loopSeconds);
    const auto fault = heard.firstFault();
    if (!fault) return;
    ASSERT_TRUE(heard.isSilentFrom(*fault)) << "at " << static_cast<double>(*fault) / kRate << " s";
    player.reset();
    manager->removeAllPlayers();
  }
  FAIL() << "the server was starved each time";
}

}  // namespace
}  // namespace zaffo
