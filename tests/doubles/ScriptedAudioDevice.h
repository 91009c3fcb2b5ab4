// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/media/output/AudioDevice.h"

namespace zaffo::media {

/// A sound card on the test's bench: plugged in and out by hand, and played by hand, so that the
/// test knows when each frame is heard. Outlives the devices that it opens.
class ScriptedAudioDevice {
 public:
  static constexpr int64_t kLatencyFrames = 2400;
  /// How a device deals with what it takes.
  struct Buffering {
    int64_t latencyFrames =
        kLatencyFrames;        ///< kept between taking a frame and letting it be heard
    int64_t pieceFrames = 0;   ///< taken at a time; 0: as many as were heard
    int64_t leadInFrames = 0;  ///< time before the first frame is heard
  };
  /// Before a device is opened.
  void setBuffering(Buffering buffering) { buffering_ = buffering; }

  [[nodiscard]] OpenAudioDevice opener() {
    return [this](int, AudioDeviceClient& client) -> std::unique_ptr<AudioDevice> {
      ++attempts;
      if (!plugged) return nullptr;
      return std::make_unique<Device>(*this, client);
    };
  }

  /// Lets `frames` be heard and takes as many new ones. Nothing happens while no device is open.
  void play(int64_t frames) {
    const std::lock_guard lock(deviceMutex_);
    if (!device_ || !device_->started) return;
    if (given_ == 0) {
      take(buffering_.latencyFrames);
      leadIn_ = buffering_.leadInFrames;
    }
    leadIn_ -= frames;
    if (leadIn_ >= 0) return;
    const int64_t piece = buffering_.pieceFrames > 0 ? buffering_.pieceFrames : frames;
    const int64_t wanted = played_ + frames + buffering_.latencyFrames;
    while (given_ + piece <= wanted) take(piece);
    played_ += frames;
  }

  /// The device breaks and says so.
  void breakDown() {
    plugged = false;
    const std::lock_guard lock(deviceMutex_);
    if (device_) device_->client.deviceFailed();
  }

  [[nodiscard]] bool open() const {
    const std::lock_guard lock(deviceMutex_);
    return device_ != nullptr;
  }
  /// What has been heard of the device that is or was open last, interleaved, from its frame 0 on.
  [[nodiscard]] std::vector<float> heard() const {
    const std::lock_guard lock(deviceMutex_);
    return {taken_.begin(), taken_.begin() + static_cast<ptrdiff_t>(2 * played_)};
  }

  std::atomic<bool> plugged{true};
  std::atomic<int> attempts{0};

 private:
  struct Device final : AudioDevice {
    Device(ScriptedAudioDevice& bench_, AudioDeviceClient& client_)
        : bench(bench_), client(client_) {
      const std::lock_guard lock(bench.deviceMutex_);
      bench.device_ = this;
      bench.taken_.clear();
      bench.given_ = bench.played_ = 0;
    }
    ~Device() override {
      const std::lock_guard lock(bench.deviceMutex_);
      if (bench.device_ == this) bench.device_ = nullptr;
    }
    bool start() override { return started = true; }
    std::optional<int64_t> framesHeard() override {
      const std::lock_guard lock(bench.deviceMutex_);
      return bench.played_;
    }

    ScriptedAudioDevice& bench;
    AudioDeviceClient& client;
    std::atomic<bool> started{false};
  };

  void take(int64_t frames) {
    const size_t from = taken_.size();
    taken_.resize(from + static_cast<size_t>(2 * frames));
    device_->client.fill(std::span(taken_).subspan(from));
    given_ += frames;
  }

  Buffering buffering_;
  mutable std::mutex deviceMutex_;
  Device* device_ = nullptr;
  int64_t leadIn_ = 0;
  std::vector<float> taken_;
  int64_t given_ = 0;
  int64_t played_ = 0;
};

}  // namespace zaffo::media
