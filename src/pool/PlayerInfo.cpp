// SPDX-License-Identifier: Apache-2.0
#include "pool/PlayerInfo.h"

#include <algorithm>
#include <utility>

#include "companion/Counter.h"
#include "platform/Trace.h"

namespace zaffo {

namespace {

constexpr const char* kReusedMessage =
    "The player has been reused during loading. You can prevent that from happening by increasing "
    "the PlayerManager.maxAllowedConcurrentPlayers and/or PlayerManager.maxPlayersAtIdleState";

const char* nameOf(PlayerState state) {
  switch (state) {
    case PlayerState::NotLoaded:
      return "NotLoaded";
    case PlayerState::Loading:
      return "Loading";
    case PlayerState::Loaded:
      return "Loaded";
  }
  return "";
}

}  // namespace

PlayerInfo::PlayerInfo(std::int64_t id, PlayerSupportedItemType supportedItemType,
                       std::shared_ptr<MutablePlayer> player)
    : id_(id), supportedItemType_(supportedItemType), player_(std::move(player)) {}

bool PlayerInfo::holds(const ZFVideo& video) const {
  const auto held = video_;  // Kept: a video's answers may come back to the pool.
  return held && held->videoId() == video.videoId();
}

bool PlayerInfo::holds(const ZFVideo& video, AVPlayerItemLoaderOptions options) const {
  return options_ == options && holds(video);
}

void PlayerInfo::reuse(std::shared_ptr<ZFVideo> video, AVPlayerItemLoaderOptions options) {
  video_ = std::move(video);
  options_ = options;
  keepsItem_ = true;
  state_ = PlayerState::NotLoaded;
  cancelLoad();
  notifyCompletionHandlers(makePlayerError(kReusedMessage));
}

void PlayerInfo::add(LoadCompletionHandlerPtr handler) {
  loadCompletionHandlers_.push_back(std::move(handler));
}

bool PlayerInfo::remove(const LoadCompletionHandlerPtr& handler) {
  const auto found =
      std::find(loadCompletionHandlers_.begin(), loadCompletionHandlers_.end(), handler);
  if (found == loadCompletionHandlers_.end()) return false;
  loadCompletionHandlers_.erase(found);
  return true;
}

void PlayerInfo::notifyCompletionHandlers(const NSErrorPtr& error) {
  // Emptied first: a handler that adds or removes handlers acts on the new list.
  const auto handlers = std::exchange(loadCompletionHandlers_, {});
  for (const auto& handler : handlers) handler->completionHandler(error);
}

void PlayerInfo::acquireOwnership() {
  activeUses_ = incremented(activeUses_);
}

void PlayerInfo::releaseOwnership() {
  activeUses_ = decremented(activeUses_);
  if (activeUses_ < 0) {
    trace("PlayerManager: Unbalanced calls between releasePlayer and playerForItem.");
    activeUses_ = 0;
  }
  if (activeUses_ == 0) park();
}

void PlayerInfo::park() {
  if (loadCompletionHandlers_.empty() && state_ == PlayerState::Loading) {
    cancelLoad();
    state_ = PlayerState::NotLoaded;
  }
  if (video_ && state_ == PlayerState::Loaded && !mayKeepItem()) {
    player_->teardownPlayerItem();
    state_ = PlayerState::NotLoaded;
  }
  if (state_ == PlayerState::NotLoaded) {
    video_ = nullptr;
    options_ = {};
  }
}

bool PlayerInfo::mayKeepItem() const {
  const auto video = video_;
  return keepsItem_ && video->canReuseAVPlayerItem();
}

void PlayerInfo::cancelLoad() {
  if (const auto command = loadCommand_) command->cancel();
  loadCommand_ = nullptr;
}

std::string PlayerInfo::debugDescription() const {
  const auto video = video_;
  return "Player " + std::to_string(id_) + " - videoId: " + (video ? video->videoId() : "nil") +
         ", state: " + nameOf(state_) + ", activeUses: " + std::to_string(activeUses_);
}

}  // namespace zaffo
