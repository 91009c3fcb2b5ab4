// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "companion/ZFVideo.h"
#include "pool/Player.h"

namespace zaffo {

/// The pool's record of one player: the video it holds, how far it has loaded, who is waiting for
/// it and how many handles use it. Owns the player. Thread: main, and the one on which a player
/// delivers its load completion; the record neither locks nor switches threads.
class PlayerInfo {
 public:
  /// Someone waiting for a load. Identified by address: the same function in two handlers makes two
  /// waiters.
  struct LoadCompletionHandler {
    std::function<void(NSErrorPtr error)> completionHandler;
  };
  using LoadCompletionHandlerPtr = std::shared_ptr<LoadCompletionHandler>;

  /// `id` is unique within a pool.
  PlayerInfo(std::int64_t id, PlayerSupportedItemType supportedItemType,
             std::shared_ptr<MutablePlayer> player);
  PlayerInfo(const PlayerInfo&) = delete;
  PlayerInfo& operator=(const PlayerInfo&) = delete;

  [[nodiscard]] std::int64_t id() const { return id_; }
  [[nodiscard]] PlayerState state() const { return state_; }
  void setState(PlayerState state) { state_ = state; }
  /// Cancels the load in progress; null when there is none.
  [[nodiscard]] const ZFCancelCommandPtr& loadCommand() const { return loadCommand_; }
  void setLoadCommand(ZFCancelCommandPtr command) { loadCommand_ = std::move(command); }
  [[nodiscard]] PlayerSupportedItemType supportedItemType() const { return supportedItemType_; }
  [[nodiscard]] std::int64_t activeUses() const { return activeUses_; }
  void setActiveUses(std::int64_t uses) { activeUses_ = uses; }
  /// The video that the player holds or loads; null when there is none.
  [[nodiscard]] const std::shared_ptr<ZFVideo>& video() const { return video_; }
  /// What the video's item was built with.
  [[nodiscard]] AVPlayerItemLoaderOptions options() const { return options_; }
  [[nodiscard]] const std::vector<LoadCompletionHandlerPtr>& loadCompletionHandlers() const {
    return loadCompletionHandlers_;
  }
  [[nodiscard]] const std::shared_ptr<MutablePlayer>& player() const { return player_; }

  /// Whether the record stands for `video`, whatever options it was built with.
  [[nodiscard]] bool holds(const ZFVideo& video) const;
  /// Whether the record stands for `video` built with `options`.
  [[nodiscard]] bool holds(const ZFVideo& video, AVPlayerItemLoaderOptions options) const;

  /// Whether the item may stay in the player when nobody uses it, if its video allows that.
  /// Initially true, and true again for each new item.
  void setKeepsItem(bool keepsItem) { keepsItem_ = keepsItem; }

  /// Points the record at another video: cancels the load in progress and fails everyone waiting
  /// for it. Leaves the player's item and the uses as they are.
  void reuse(std::shared_ptr<ZFVideo> video, AVPlayerItemLoaderOptions options);

  void add(LoadCompletionHandlerPtr handler);
  /// Removes the first entry that is `handler` itself; false when there is none.
  bool remove(const LoadCompletionHandlerPtr& handler);
  /// Notifies everyone waiting, in order, having cleared the list first; null is success. remove()
  /// has no effect on a handler that is no longer on the list: one that must not be notified any
  /// more has to ignore the call.
  void notifyCompletionHandlers(const NSErrorPtr& error);

  /// Adds one use.
  void acquireOwnership();
  /// Drops one use. After the last one the player is parked: a load that nobody waits for is
  /// cancelled, and an item that is not to be kept is torn down. Dropping one use too many prints a
  /// line.
  void releaseOwnership();

  /// "Player 3 - videoId: 1234, state: Loaded, activeUses: 1".
  [[nodiscard]] std::string debugDescription() const;

 private:
  void cancelLoad();
  void park();
  [[nodiscard]] bool mayKeepItem() const;

  const std::int64_t id_;
  PlayerState state_ = PlayerState::NotLoaded;
  ZFCancelCommandPtr loadCommand_;
  const PlayerSupportedItemType supportedItemType_;
  std::int64_t activeUses_ = 0;
  std::shared_ptr<ZFVideo> video_;
  AVPlayerItemLoaderOptions options_;
  std::vector<LoadCompletionHandlerPtr> loadCompletionHandlers_;
  const std::shared_ptr<MutablePlayer> player_;
  bool keepsItem_ = true;
};

}  // namespace zaffo
