// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <ZaffoPlayback/ZaffoPlayback.h>

#include "feed/FeedVideo.h"

namespace zaffo::feed {

/// One page's use of a pooled player: loads the video's item, borrows a player that holds it, and
/// gives it back. Thread: main.
///
///               request          the loader's item           the pool's player
///     +-------+ ------> +-------------+ ------> +---------------+ ------> +-------+
///     | Empty |         | LoadingItem |         | LoadingPlayer |         | Ready |
///     +-------+ <------ +-------------+ <------ +---------------+ <------ +-------+
///         ^     giveBack, or the pool has       |       |                     |
///         |     dropped the player        no item, or an error            fail
///         |                                     v       v                     v
///         |     giveBack, check               +----------------------------------+
///         +---------------------------------- |              Failed              |
///                                             +----------------------------------+
///
/// A request goes from Empty to Ready inside the call when the pool already holds the video. A
/// video too short to loop has its item loaded once more, without looping.
class PlayerLoan : public std::enable_shared_from_this<PlayerLoan> {
  struct Private {};

 public:
  enum class State { Empty, LoadingItem, LoadingPlayer, Ready, Failed };

  PlayerLoan(Private, std::shared_ptr<PlayerManager> manager, std::shared_ptr<FeedVideo> video);
  [[nodiscard]] static std::shared_ptr<PlayerLoan> create(std::shared_ptr<PlayerManager> manager,
                                                          std::shared_ptr<FeedVideo> video);
  ~PlayerLoan();

  [[nodiscard]] State state() const { return state_; }
  /// The handle while Ready, null otherwise.
  [[nodiscard]] const std::shared_ptr<PlayerDecorator>& player() const { return player_; }
  /// Why it Failed; empty when unknown.
  [[nodiscard]] const std::string& reason() const { return reason_; }

  /// Called when a load has ended as Ready or Failed, never inside the call that started it.
  void setLoadedHandler(std::function<void()> handler) { loadedHandler_ = std::move(handler); }

  /// Starts from Empty; does nothing in any other state. A player that the pool already holds with
  /// other options will do, and is there at once.
  void request(AVPlayerItemLoaderOptions options = {});
  /// Asks the pool again for the player already on loan, as a page does when it comes into view.
  /// The handle stays the same; goes to Empty when the pool no longer holds the video in that
  /// player.
  void renew();
  /// Goes to Empty when the pool has dropped the player or the load, and from Failed.
  void check();
  /// Goes to Empty; a load in progress is cancelled, and the player is stopped.
  void giveBack();
  /// Gives the player back, without its item, and goes to Failed.
  void fail(std::string reason);

 private:
  [[nodiscard]] PlayerState poolState() const { return manager_->playerState(video_); }
  void takeFromPool();
  void loadItem();
  void itemMissing(uint64_t attempt);
  void loadFailed(std::string reason);
  /// `round` and `whole` are the seconds of a loop and of all of them, as the loader tells them.
  void itemLoaded(uint64_t attempt, const std::shared_ptr<AVPlayerItem>& item, double round,
                  double whole);
  void playerLoaded(uint64_t attempt, const PlayerLoadResult& result);
  void end(void (PlayerDecorator::*operation)());

  std::shared_ptr<PlayerManager> manager_;
  std::shared_ptr<FeedVideo> video_;
  std::function<void()> loadedHandler_;
  State state_ = State::Empty;
  AVPlayerItemLoaderOptions options_;  // of the player, or of what is being loaded
  uint64_t attempt_ = 0;               // identifies the answers to an abandoned request
  ZFCancelCommandPtr loadCommand_;
  std::shared_ptr<PlayerDecorator> player_;
  std::string reason_;
};

}  // namespace zaffo::feed
