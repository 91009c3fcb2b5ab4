// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "fast/PlaybackSession.h"
#include "pool/Player.h"

namespace zaffo {

class PlayerFastOutputView;

/// A cheap player for local items: it shows the picture of a PlaybackSession and does nothing else.
/// It plays no sound, has no time observers, and seeks to the exact frame whatever the tolerances.
/// A freshly loaded one shows its first frame and is stopped.
///
///     +---------+ loadPlayerItem +---------+ session started +--------+
///     | no item | -------------> | loading | --------------> | loaded |
///     +---------+                +---------+                 +--------+
///        ^   ^    error, cancel       |                          |
///        |   +------------------------+                          |
///        +-------------------------------------------------------+
///          teardownPlayerItem, fullTeardown, failure of the session
///
/// A teardown does not end a load in progress: its command does, and so does the next load. After a
/// failure of the session, which is reported on standard output only, the item is gone and has to
/// be loaded again.
///
/// Thread: main. Destroying it, on any thread, never waits.
class ZAFFO_EXPORT PlayerFast final : public MutablePlayer,
                                      public PlaybackSessionDelegate,
                                      public std::enable_shared_from_this<PlayerFast> {
 public:
  [[nodiscard]] static std::shared_ptr<PlayerFast> create(PlaybackSessionFactory factory = {});
  ~PlayerFast() override;

  /// 0 without an item; setting it then does nothing.
  [[nodiscard]] float rate() const override;
  void setRate(float rate) override;
  /// Initially 1. Stored, without any effect.
  [[nodiscard]] float volume() const override { return volume_; }
  void setVolume(float volume) override { volume_ = volume; }
  /// kCMTimeZero without an item.
  [[nodiscard]] CMTime currentTime() const override;
  void setCurrentTime(CMTime time) override;
  [[nodiscard]] std::shared_ptr<AVPlayerItem> playerItem() const override;
  /// A PlayerFastOutputView; always the same one.
  [[nodiscard]] std::shared_ptr<UIView> outputView() const override;
  /// `completion` receives false, on the session's queue, when the seek fails. It is not called on
  /// success, nor when there is no item.
  void seekToTime(CMTime time, CMTime toleranceBefore, CMTime toleranceAfter,
                  SeekCompletion completion) override;
  /// `handler` is never called; the command does nothing.
  [[nodiscard]] ZFCancelCommandPtr addTimeObserver(std::vector<CMTime> boundaries,
                                                   TimeHandler handler) override;
  [[nodiscard]] ZFCancelCommandPtr addTimeObserver(CMTime periodicInterval,
                                                   TimeHandler handler) override;
  using Player::addTimeObserver;

  /// `completion` is called on the main queue, never inside the call: with null once the first
  /// frame is on its way to the screen, or with the reason why the session could not start
  /// (PlaybackSession::start).
  ZFCancelCommandPtr loadPlayerItem(std::shared_ptr<AVPlayerItem> item,
                                    LoadCompletion completion) override;
  void teardownPlayerItem() override;
  /// Like teardownPlayerItem(); the view stays until the player is destroyed.
  void fullTeardown() override;

  /// Called by a session, on its queue. Ignored unless it is the current one.
  void playbackSession(const std::shared_ptr<PlaybackSession>& session,
                       const NSErrorPtr& error) override;

 private:
  explicit PlayerFast(PlaybackSessionFactory factory);

  [[nodiscard]] PlaybackSession* currentPlaybackSession() const;
  void setCurrentPlaybackSession(std::shared_ptr<PlaybackSession> session);
  void teardownSession();
  void sessionDidStart(const std::shared_ptr<PlaybackSession>& session);

  float volume_ = 1.0f;
  const std::shared_ptr<PlayerFastOutputView> fastOutputView_;
  // The session that the main thread holds, and the one still in use: a session that fails leaves
  // the latter at once, on its own queue.
  std::shared_ptr<PlaybackSession> heldSession_;
  std::atomic<PlaybackSession*> currentSession_{nullptr};
  ZFCancelCommandPtr currentLoadCommand_;
  const PlaybackSessionFactory factory_;
};

}  // namespace zaffo
