// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <cmath>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "loading/LoopFixture.h"
#include "media/WavFile.h"
#include "platform/avfoundation/AVAudioSession.h"

namespace zaffo {

/// A loop that is recorded as it is mixed.
class LoopSoundFixture : public LoopFixture {
 protected:
  static constexpr double kRate = 48000;

  static std::size_t frameAt(double seconds) {
    return static_cast<std::size_t>(std::llround(seconds * kRate));
  }

  LoopSoundFixture() { AVAudioSession::sharedInstance().setOutput(AVAudioSession::Output::None); }
  ~LoopSoundFixture() override { std::filesystem::remove(path_); }

  /// Plays the loop of a clip for some of its rounds and records it, from media time 0 on.
  std::vector<float> record(const std::string& name, double rounds,
                            AVPlayerItemLoaderOptions options = {}) {
    if (!load(name, options)) return {};
    return recordItem(rounds * loopSeconds);
  }

  /// Plays the item that was loaded and records it to a time of its own, from media time 0 on.
  std::vector<float> recordItem(double endSeconds) {
    auto& session = AVAudioSession::sharedInstance();
    if (!lend(PlayerManager::PlayerKind::Native)) return {};
    // From the start of a frame of the output on.
    time.advance(kNanosecondsPerMillisecond - TimeSource::now() % kNanosecondsPerMillisecond);
    const int64_t recordingStart = TimeSource::now();
    if (session.startRecording(path_) || !start()) return {};
    const int64_t mediaStart = TimeSource::now() - std::llround(seconds() * 1e9);
    while (seconds() < endSeconds) time.advance(100 * kNanosecondsPerMillisecond);
    session.stopRecording();
    auto left = test::readWav(path_).left;
    const auto lead = frameAt(static_cast<double>(mediaStart - recordingStart) / 1e9);
    if (lead > left.size()) return {};
    left.erase(left.begin(), left.begin() + static_cast<std::ptrdiff_t>(lead));
    return left;
  }

 private:
  const std::string path_ = testing::TempDir() + "LoopSound" + std::to_string(getpid()) + ".wav";
};

}  // namespace zaffo
