// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/media/output/AudioMixer.h"
#include "platform/media/output/AudioOutput.h"

namespace zaffo::media {

class AudioOutputEngine;

/// The AudioInput that the engine hands out: a channel that tells the engine when it is about to
/// sound and when it goes away.
class MixedInput final : public AudioInput {
 public:
  MixedInput(std::shared_ptr<AudioMixer> mixer, std::shared_ptr<InputChannel> channel,
             std::weak_ptr<AudioOutputEngine> engine);
  ~MixedInput() override;

  void restart(int64_t firstOutputFrame) override;
  int64_t write(std::span<const float> interleaved) override {
    return channel_->write(interleaved);
  }
  [[nodiscard]] int64_t writable() const override { return channel_->writable(); }
  [[nodiscard]] int64_t nextOutputFrame() const override { return channel_->nextOutputFrame(); }
  void stop() override { channel_->stop(); }
  void setVolume(float volume) override { channel_->setVolume(volume); }

 private:
  const std::shared_ptr<AudioMixer> mixer_;  ///< outlives the channel, which reads its position
  const std::shared_ptr<InputChannel> channel_;
  const std::weak_ptr<AudioOutputEngine> engine_;
};

}  // namespace zaffo::media
