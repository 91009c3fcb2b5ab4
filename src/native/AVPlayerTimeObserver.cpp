// SPDX-License-Identifier: Apache-2.0
#include "native/AVPlayerTimeObserver.h"

#include <utility>

namespace zaffo {

AVPlayerTimeObserver::AVPlayerTimeObserver(std::shared_ptr<void> playerObserver,
                                           const std::shared_ptr<AVPlayer>& player)
    : playerObserver_(std::move(playerObserver)), player_(player) {}

void AVPlayerTimeObserver::cancel() {
  if (!playerObserver_) return;
  const auto player = player_.lock();
  if (!player) return;
  player_.reset();
  player->removeTimeObserver(std::exchange(playerObserver_, nullptr));
}

}  // namespace zaffo
