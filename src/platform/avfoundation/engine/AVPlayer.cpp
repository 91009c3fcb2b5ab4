// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/AVPlayer.h"

#include "platform/avfoundation/engine/EnginePlayer.h"

namespace zaffo {

std::shared_ptr<AVPlayer> AVPlayer::create() {
  return EnginePlayer::create(media::AudioOutput::shared());
}

std::shared_ptr<media::VideoOutput> AVPlayer::videoOutput() const {
  return nullptr;
}

}  // namespace zaffo
