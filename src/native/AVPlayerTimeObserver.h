// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "companion/ZFCancelCommand.h"
#include "platform/avfoundation/AVPlayer.h"

namespace zaffo {

/// Ends a time observation of an AVPlayer on cancel. Destroying it does not end the observation.
/// Thread: main.
class AVPlayerTimeObserver final : public ZFCancelCommand {
 public:
  AVPlayerTimeObserver() = delete;
  /// Owns `playerObserver`, the token returned by `player`; holds `player` weakly. Either may be
  /// null: cancelling then does nothing.
  AVPlayerTimeObserver(std::shared_ptr<void> playerObserver,
                       const std::shared_ptr<AVPlayer>& player);

  /// Removes the observation from the player, once. Does nothing once the player is gone.
  void cancel() override;

 private:
  std::shared_ptr<void> playerObserver_;
  std::weak_ptr<AVPlayer> player_;
};

}  // namespace zaffo
