// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/DeviceSession.h"

#include <algorithm>
#include <utility>

#include "platform/dispatch/Confinement.h"

namespace zaffo::media {

DeviceSession::DeviceSession(std::shared_ptr<AudioMixer> mixer, RenderGate::Owner owner,
                             DispatchQueuePtr queue, std::function<void()> failed)
    : mixer_(std::move(mixer)),
      owner_(owner),
      queue_(std::move(queue)),
      failed_(std::move(failed)) {}

DeviceSession::~DeviceSession() = default;

void DeviceSession::fill(std::span<float> interleaved) {
  if (mixer_->gate().tryEnter(owner_)) {
    mixer_->render(offset_.load() + framesGiven_.load(std::memory_order_relaxed), interleaved);
    mixer_->gate().leave();
  } else {
    std::fill(interleaved.begin(), interleaved.end(), 0.0f);
  }
  framesGiven_.fetch_add(static_cast<int64_t>(interleaved.size() / 2));
}

void DeviceSession::deviceFailed() {
  if (!failureTold_.exchange(true)) failed_();
}

bool DeviceSession::open(const OpenAudioDevice& openDevice, int sampleRate) {
  assertCurrent(*queue_);
  device_ = openDevice(sampleRate, *this);
  return device_ && device_->start();
}

void DeviceSession::close() {
  assertCurrent(*queue_);
  device_.reset();
}

std::optional<int64_t> DeviceSession::framesHeard() {
  assertCurrent(*queue_);
  if (!device_) return std::nullopt;
  const auto heard = device_->framesHeard();
  if (!heard) return std::nullopt;
  if (*heard <= framesGiven_.load()) framesHeard_ = *heard;
  return framesHeard_;
}

}  // namespace zaffo::media
