// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/media/output/AudioDevice.h"
#include "platform/media/output/AudioMixer.h"

namespace zaffo::media {

/// One device from its opening to its end, as the device sees it: silence until it has its place on
/// the time line, then the mix from that place on. Each has a queue of its own, on which the device
/// may keep it waiting.
class DeviceSession final : public AudioDeviceClient {
 public:
  /// `failed` is called once, on any thread, when the device gives up.
  DeviceSession(std::shared_ptr<AudioMixer> mixer, RenderGate::Owner owner, DispatchQueuePtr queue,
                std::function<void()> failed);
  ~DeviceSession();

  // The device's side.
  void fill(std::span<float> interleaved) override;
  void deviceFailed() override;

  [[nodiscard]] const DispatchQueuePtr& queue() const { return queue_; }

  // The session's queue.
  [[nodiscard]] bool open(const OpenAudioDevice& openDevice, int sampleRate);
  void close();
  /// As the device says, but only what can be: a sound server that still plays what it took before
  /// the stream began counts that as ours, and then more is heard than was given. Such an answer
  /// changes nothing. Nothing when there is no device, or when it cannot tell.
  [[nodiscard]] std::optional<int64_t> framesHeard();
  /// How many frames the device has taken. Thread: any.
  [[nodiscard]] int64_t framesGiven() const { return framesGiven_.load(); }

  // The control side.
  [[nodiscard]] RenderGate::Owner owner() const { return owner_; }
  /// The device's frame 0 stands for output frame `offset`.
  void setOffset(int64_t offset) { offset_.store(offset); }
  /// Takes the right to render.
  void takeOver() { mixer_->gate().passTo(owner_); }

 private:
  const std::shared_ptr<AudioMixer> mixer_;
  const RenderGate::Owner owner_;
  const DispatchQueuePtr queue_;
  const std::function<void()> failed_;
  std::atomic<bool> failureTold_{false};
  std::atomic<int64_t> offset_{0};
  std::atomic<int64_t> framesGiven_{0};
  int64_t framesHeard_ = 0;              ///< the queue's
  std::unique_ptr<AudioDevice> device_;  ///< last, so that it goes first
};

}  // namespace zaffo::media
