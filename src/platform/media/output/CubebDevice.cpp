// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/CubebDevice.h"

#include <cubeb/cubeb.h>

#include <atomic>

#include "platform/TimeSource.h"

namespace zaffo::media {

namespace {

/// What the device keeps in hand: 128 ms. It asks a few times within it, so a quarter of this wakes
/// the machine 31 times a second.
constexpr uint32_t kLatencyFrames = 6144;

struct ContextDeleter {
  void operator()(cubeb* context) const { cubeb_destroy(context); }
};
struct StreamDeleter {
  void operator()(cubeb_stream* stream) const {
    cubeb_stream_stop(stream);
    cubeb_stream_destroy(stream);
  }
};

class CubebDevice final : public AudioDevice {
 public:
  explicit CubebDevice(AudioDeviceClient& client) : client_(client) {}

  [[nodiscard]] bool open(int sampleRate) {
    cubeb* context = nullptr;
    if (cubeb_init(&context, "ZaffoPlayback", nullptr) != CUBEB_OK) return false;
    context_.reset(context);
    cubeb_stream_params parameters{};
    parameters.format = CUBEB_SAMPLE_FLOAT32NE;
    parameters.rate = static_cast<uint32_t>(sampleRate);
    parameters.channels = 2;
    parameters.layout = CUBEB_LAYOUT_STEREO;
    parameters.prefs = CUBEB_STREAM_PREF_NONE;
    cubeb_stream* stream = nullptr;
    const int result = cubeb_stream_init(context, &stream, "playback", nullptr, nullptr, nullptr,
                                         &parameters, kLatencyFrames, &fill, &stateChanged, this);
    if (result != CUBEB_OK) return false;
    stream_.reset(stream);
    return true;
  }

  [[nodiscard]] bool start() override { return cubeb_stream_start(stream_.get()) == CUBEB_OK; }

  [[nodiscard]] std::optional<int64_t> framesHeard() override {
    uint64_t position = 0;
    if (cubeb_stream_get_position(stream_.get(), &position) == CUBEB_OK) {
      return static_cast<int64_t>(position);
    }
    uint32_t latency = 0;
    if (cubeb_stream_get_latency(stream_.get(), &latency) != CUBEB_OK) return std::nullopt;
    const int64_t heard = framesGiven_.load() - static_cast<int64_t>(latency);
    return heard > 0 ? heard : 0;
  }

 private:
  static long fill(cubeb_stream*, void* self, const void*, void* output, long frames) {
    auto& device = *static_cast<CubebDevice*>(self);
    device.client_.fill({static_cast<float*>(output), static_cast<size_t>(2 * frames)});
    device.framesGiven_.fetch_add(frames);
    return frames;
  }

  static void stateChanged(cubeb_stream*, void* self, cubeb_state state) {
    if (state == CUBEB_STATE_ERROR) static_cast<CubebDevice*>(self)->client_.deviceFailed();
  }

  AudioDeviceClient& client_;
  std::atomic<int64_t> framesGiven_{0};
  std::unique_ptr<cubeb, ContextDeleter> context_;
  std::unique_ptr<cubeb_stream, StreamDeleter> stream_;  ///< goes before its context
};

}  // namespace

std::unique_ptr<AudioDevice> openCubebDevice(int sampleRate, AudioDeviceClient& client) {
  if (TimeSource::replacement()) return nullptr;
  auto device = std::make_unique<CubebDevice>(client);
  return device->open(sampleRate) ? std::move(device) : nullptr;
}

}  // namespace zaffo::media
