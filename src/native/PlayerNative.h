// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/avfoundation/AVPlayer.h"
#include "pool/Player.h"

namespace zaffo {

class PlayerNativeOutputView;
class PollingObserverType;

/// A player that drives the platform's AVPlayer; it plays every item, streams included. It has one
/// AVPlayer, from its creation until fullTeardown(); each load swaps the item in it.
///
/// A load waits until first the item and then the AVPlayer are ready, checking at once and every
/// pollingInterval seconds after that, without a time limit. A player at rate 0 then prerolls, and
/// the load ends when the preroll does.
///
///     +------+ loadPlayerItem +------------------+ item   +--------------------+
///     | idle | -------------> | waiting for item | -----> | waiting for player |
///     +------+                +------------------+ ready  +--------------------+
///       ^  ^ ^    item failed        |                         |            | player ready,
///       |  | +-----------------------+                         |            | standing still
///       |  |      player failed; player ready and playing      |            v
///       |  +---------------------------------------------------+    +------------+
///       |                     preroll completed                     | prerolling |
///       +---------------------------------------------------------- +------------+
///
///     Any state --- the load is cancelled, teardownPlayerItem ---> idle, nothing reported
///     Any state --- loadPlayerItem ---> waiting for item, nothing reported for the earlier load
///     Any state --- fullTeardown ---> disposed
///
/// A disposed player returns neutral values, ignores every command, and fails loads with "The
/// player has been disposed and cannot be used anymore.".
///
/// Thread: main; reading is allowed on any. Destroying it never waits.
class ZAFFO_EXPORT PlayerNative final : public MutablePlayer,
                                        public std::enable_shared_from_this<PlayerNative> {
 public:
  /// Seconds between two checks of a status.
  static constexpr double pollingInterval = 0.1;

  [[nodiscard]] static std::shared_ptr<PlayerNative> create();
  /// Drives `player` instead of an AVPlayer of its own. Null is a fatal error.
  [[nodiscard]] static std::shared_ptr<PlayerNative> create(std::shared_ptr<AVPlayer> player);
  ~PlayerNative() override;

  [[nodiscard]] float rate() const override;
  void setRate(float rate) override;
  [[nodiscard]] float volume() const override;
  void setVolume(float volume) override;
  /// kCMTimeZero while the platform has no definite time.
  [[nodiscard]] CMTime currentTime() const override;
  /// Seeks with the platform's own tolerances.
  void setCurrentTime(CMTime time) override;
  [[nodiscard]] std::shared_ptr<AVPlayerItem> playerItem() const override;
  /// A PlayerNativeOutputView; always the same one.
  [[nodiscard]] std::shared_ptr<UIView> outputView() const override;
  /// `completion` is passed to the platform: called once, and never when disposed.
  void seekToTime(CMTime time, CMTime toleranceBefore, CMTime toleranceAfter,
                  SeekCompletion completion) override;
  /// Time observers last until their command is cancelled, across loads and teardowns.
  [[nodiscard]] ZFCancelCommandPtr addTimeObserver(std::vector<CMTime> boundaries,
                                                   TimeHandler handler) override;
  [[nodiscard]] ZFCancelCommandPtr addTimeObserver(CMTime periodicInterval,
                                                   TimeHandler handler) override;
  using Player::addTimeObserver;

  /// `completion` receives null inside this call when the item is ready and already playing, or
  /// later on the main queue; on failure, the item's or the AVPlayer's own error, or "Failed to
  /// load item" and "Player loading failed" when there is none. A failed or cancelled load leaves
  /// the item in the AVPlayer. An item that another AVPlayer holds is refused inside this call with
  /// the platform's error; the AVPlayer keeps what it had, or is empty.
  ZFCancelCommandPtr loadPlayerItem(std::shared_ptr<AVPlayerItem> item,
                                    LoadCompletion completion) override;
  void teardownPlayerItem() override;
  void fullTeardown() override;

 private:
  explicit PlayerNative(std::shared_ptr<AVPlayer> player);

  void stopObserving();
  void cancelCurrentLoad();
  [[nodiscard]] NSErrorPtr putIntoPlayer(const std::shared_ptr<AVPlayerItem>& item);
  void waitForItemReadiness(const std::shared_ptr<AVPlayerItem>& item, LoadCompletion completion);
  void itemStatusChanged(AVPlayerItemStatus status, const AVPlayerItem& item,
                         const LoadCompletion& completion);
  void waitForPlayerReadiness(LoadCompletion completion);
  void prerollPlayer(LoadCompletion completion);

  std::shared_ptr<AVPlayer> player_;  // Null once disposed.
  std::shared_ptr<PollingObserverType> pollingObserver_;
  bool prerolling_ = false;
  // Distinguishes the completion of the current preroll from a late one of a cancelled preroll.
  std::uint64_t prerollNumber_ = 0;
  const std::shared_ptr<PlayerNativeOutputView> nativeOutputView_;
};

}  // namespace zaffo
