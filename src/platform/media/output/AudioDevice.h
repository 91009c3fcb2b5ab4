// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>

namespace zaffo::media {

/// Whom a device asks for sound and tells its fate.
class AudioDeviceClient {
 public:
  /// Fills `interleaved` (stereo) with what comes next. Thread: the device's own. Takes no lock,
  /// allocates nothing and waits for nothing.
  virtual void fill(std::span<float> interleaved) = 0;
  /// The device is of no use any more. Thread: any; may come more than once.
  virtual void deviceFailed() = 0;

 protected:
  ~AudioDeviceClient() = default;
};

/// A sound device that has been opened. Thread: one at a time, one that may wait.
class AudioDevice {
 public:
  /// Stops and closes it. After this returns the client is not called any more.
  virtual ~AudioDevice() = default;

  /// Starts asking for frames. Returns whether that went well.
  [[nodiscard]] virtual bool start() = 0;

  /// How many of the frames that fill() gave since start() have been heard by now; nullopt when the
  /// device cannot tell. Stays 0 until the first one is heard.
  [[nodiscard]] virtual std::optional<int64_t> framesHeard() = 0;
};

/// Opens a device that plays stereo float at `sampleRate` and asks `client`, which outlives it.
/// Returns null when there is none. May wait.
using OpenAudioDevice =
    std::function<std::unique_ptr<AudioDevice>(int sampleRate, AudioDeviceClient& client)>;

}  // namespace zaffo::media
