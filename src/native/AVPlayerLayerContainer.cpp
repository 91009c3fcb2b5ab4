// SPDX-License-Identifier: Apache-2.0
#include "native/AVPlayerLayerContainer.h"

#include <utility>

namespace zaffo {

AVPlayerLayerContainer::AVPlayerLayerContainer(std::shared_ptr<Player> player,
                                               const std::shared_ptr<AVPlayerLayer>& playerLayer)
    : playerLayer_(playerLayer), player_(std::move(player)) {}

}  // namespace zaffo
