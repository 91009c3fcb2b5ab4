// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/MixedInput.h"

#include <utility>

#include "platform/media/output/AudioOutputEngine.h"

namespace zaffo::media {

MixedInput::MixedInput(std::shared_ptr<AudioMixer> mixer, std::shared_ptr<InputChannel> channel,
                       std::weak_ptr<AudioOutputEngine> engine)
    : mixer_(std::move(mixer)), channel_(std::move(channel)), engine_(std::move(engine)) {}

MixedInput::~MixedInput() {
  mixer_->remove(channel_);
  if (const auto engine = engine_.lock()) engine->sweepSoon();
}

void MixedInput::restart(int64_t firstOutputFrame) {
  channel_->restart(firstOutputFrame);
  if (const auto engine = engine_.lock()) engine->wake();
}

}  // namespace zaffo::media
