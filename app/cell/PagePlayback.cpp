// SPDX-License-Identifier: Apache-2.0
#include "cell/PagePlayback.h"

#include <utility>

#include "cell/FastPlayback.h"
#include "cell/NativePlayback.h"

namespace zaffo::feed {

std::shared_ptr<PagePlayback> PagePlayback::create(std::shared_ptr<Player> player, Events events) {
  const auto view = player->outputView();
  if (const auto fast = std::dynamic_pointer_cast<PlayerFastOutputView>(view)) {
    return FastPlayback::create(std::move(player), fast->sampleBufferDisplayerLayer(),
                                std::move(events));
  }
  const auto native = std::dynamic_pointer_cast<PlayerNativeOutputView>(view);
  return NativePlayback::create(std::move(player), native ? native->playerLayer() : nullptr,
                                std::move(events));
}

}  // namespace zaffo::feed
