// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "pool/Player.h"

namespace zaffo {

class PlayerManager;

/// The handle to a pooled player: it forwards every operation to the player, which only the pool
/// keeps alive, and stands for one use of it. releaseToManager(), or dropping the last reference to
/// the handle, gives the use back. Set the rate to 0 first: a player that nobody uses is rewound
/// but not stopped, and whoever asks for its video next gets it still playing.
///
///     +-------+  releaseToManager   +----------+
///     | bound | ------------------> | released |
///     +-------+                     +----------+
///         |      the pool drops the player   |
///         +----------> +----------+ <--------+
///                      | orphaned |
///                      +----------+
///
/// A released handle keeps forwarding for as long as the pool keeps the player. An orphaned one
/// does nothing, which is a normal state, not an error: rate and volume are 0, the time is
/// kCMTimeZero, there is no item, the view is empty (always the same one), a seek's completion is
/// never called, and the commands of time observers do nothing.
///
/// Thread: main, like the players themselves; a handle may be released or dropped on any thread,
/// and its use is then given back on the main thread.
class ZAFFO_EXPORT PlayerDecorator final : public Player {
 public:
  /// Created by the pool for a use it has already counted. Calls neither, and holds both weakly.
  PlayerDecorator(const std::shared_ptr<PlayerManager>& manager,
                  const std::shared_ptr<Player>& innerPlayer);

  /// Gives the use back, unless releaseToManager() has.
  ~PlayerDecorator() override;

  /// The pooled player; null when the pool has dropped it.
  [[nodiscard]] std::shared_ptr<Player> innerPlayer() const { return innerPlayer_.lock(); }
  void setInnerPlayer(const std::shared_ptr<Player>& player) { innerPlayer_ = player; }

  /// Whether this still stands for a use: neither given back nor orphaned.
  [[nodiscard]] bool isBound() const { return !isGivenBack_ && !innerPlayer_.expired(); }

  /// Gives the use back, once: inside the call on the main thread, and in a block on the main queue
  /// from any other thread. Does nothing for an orphaned handle.
  void releaseToManager();

  /// Does the same for an item that turned out to be broken: it does not stay in the player once
  /// nobody uses it, whatever its video says. The next request for the video loads it again.
  void discardToManager();

  [[nodiscard]] float rate() const override;
  void setRate(float rate) override;
  [[nodiscard]] float volume() const override;
  void setVolume(float volume) override;
  [[nodiscard]] CMTime currentTime() const override;
  void setCurrentTime(CMTime time) override;
  [[nodiscard]] std::shared_ptr<AVPlayerItem> playerItem() const override;
  [[nodiscard]] std::shared_ptr<UIView> outputView() const override;
  void seekToTime(CMTime time, CMTime toleranceBefore, CMTime toleranceAfter,
                  SeekCompletion completion) override;
  [[nodiscard]] ZFCancelCommandPtr addTimeObserver(std::vector<CMTime> boundaries,
                                                   TimeHandler handler) override;
  [[nodiscard]] ZFCancelCommandPtr addTimeObserver(CMTime periodicInterval,
                                                   TimeHandler handler) override;
  using Player::addTimeObserver;

  /// Whether both wrap the same player, or neither wraps one.
  [[nodiscard]] bool operator==(const PlayerDecorator& other) const;

 private:
  using GiveBack = void (PlayerManager::*)(const std::shared_ptr<Player>& player);
  void giveBack(GiveBack operation);

  std::weak_ptr<Player> innerPlayer_;
  std::weak_ptr<PlayerManager> manager_;
  std::atomic<bool> isGivenBack_ = false;
  mutable std::shared_ptr<UIView> emptyOutputView_;  // Made when first asked for.
};

}  // namespace zaffo
