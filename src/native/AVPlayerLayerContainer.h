// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/avfoundation/AVPlayerLayer.h"
#include "pool/Player.h"

namespace zaffo {

/// The bare layer of a pooled player, lent to someone who puts it into a layer tree of their own.
/// While the container lives, its handle keeps the player in use; destroying the container drops
/// the handle and leaves the layer where it is. Set the rate of player() to 0 first, unless someone
/// else is still watching. Thread: main.
class ZAFFO_EXPORT AVPlayerLayerContainer {
 public:
  AVPlayerLayerContainer() = delete;
  /// Owns `player`; holds `playerLayer` weakly.
  AVPlayerLayerContainer(std::shared_ptr<Player> player,
                         const std::shared_ptr<AVPlayerLayer>& playerLayer);
  AVPlayerLayerContainer(const AVPlayerLayerContainer&) = delete;
  AVPlayerLayerContainer& operator=(const AVPlayerLayerContainer&) = delete;

  /// Null once nobody else holds the layer.
  [[nodiscard]] std::shared_ptr<AVPlayerLayer> playerLayer() const { return playerLayer_.lock(); }
  void setPlayerLayer(const std::shared_ptr<AVPlayerLayer>& layer) { playerLayer_ = layer; }

  /// The handle whose video the layer shows.
  [[nodiscard]] const std::shared_ptr<Player>& player() const { return player_; }

 private:
  std::weak_ptr<AVPlayerLayer> playerLayer_;
  const std::shared_ptr<Player> player_;
};

}  // namespace zaffo
