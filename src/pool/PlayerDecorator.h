#pragma once

#include <memory>
#include <vector>

#include "pool/Player.h"

namespace zaffo {

class PlayerManager;

/// The handle to a pooled player: it forwards every operation to the player, which only the pool
/// keeps alive, and stands for one use of it. releaseToManager(), or dropping the last reference to
/// the handle, gives the use back.
///
///     +-------+  releaseToManager   +----------+
///     | bound | ------------------> | released |
///     +-------+                     +----------+
///         |      the pool drops the player   |
///         +----------> +----------+ <--------+
///                      | orphaned |
///                      +----------+
///
/// A released handle still forwards for as long as the pool keeps the player. An orphaned one
/// answers with neutral values and does nothing; that is an ordinary state, not a fault.
///
/// Thread: main, as the players themselves; a handle may be released or dropped on any thread, and
/// its use is then given back on the main one.
class ZAFFO_EXPORT PlayerDecorator final : public Player {
 public:
  /// Made by the pool for a use that it has counted. Calls nobody; holds both weakly.
  PlayerDecorator(const std::shared_ptr<PlayerManager>& manager,
                  const std::shared_ptr<Player>& innerPlayer);

  /// Gives the use back, unless releaseToManager() has.
  ~PlayerDecorator() override;

  /// The pooled player; null when the pool has dropped it.
  [[nodiscard]] std::shared_ptr<Player> innerPlayer() const { return innerPlayer_.lock(); }
  void setInnerPlayer(const std::shared_ptr<Player>& player) { innerPlayer_ = player; }

  /// Gives the use back: inside the call on the main thread, and in a block of the main queue on
  /// any other. Once only; does nothing for an orphaned handle.
  void releaseToManager();

  /// 0 when orphaned.
  [[nodiscard]] float rate() const override;
  void setRate(float rate) override;
  /// 0 when orphaned.
  [[nodiscard]] float volume() const override;
  void setVolume(float volume) override;
  /// kCMTimeZero when orphaned.
  [[nodiscard]] CMTime currentTime() const override;
  void setCurrentTime(CMTime time) override;
  /// Null when orphaned.
  [[nodiscard]] std::shared_ptr<AVPlayerItem> playerItem() const override;
  /// An empty view, the same one always, when orphaned.
  [[nodiscard]] std::shared_ptr<UIView> outputView() const override;
  /// `completion` is never called when orphaned.
  void seekToTime(CMTime time, CMTime toleranceBefore, CMTime toleranceAfter,
                  SeekCompletion completion) override;
  /// The command that does nothing, and no observation, when orphaned.
  [[nodiscard]] ZFCancelCommandPtr addTimeObserver(std::vector<CMTime> boundaries,
                                                   TimeHandler handler) override;
  [[nodiscard]] ZFCancelCommandPtr addTimeObserver(CMTime periodicInterval,
                                                   TimeHandler handler) override;

  /// Whether both wrap the same player, or neither wraps one.
  [[nodiscard]] bool operator==(const PlayerDecorator& other) const;

 private:
  std::weak_ptr<Player> innerPlayer_;
  std::weak_ptr<PlayerManager> manager_;
  mutable std::shared_ptr<UIView> emptyOutputView_;  // Made when first asked for.
};

}  // namespace zaffo
