// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "platform/Mutex.h"
#include "platform/avfoundation/AVPlayer.h"
#include "platform/avfoundation/engine/PlayerItem.h"
#include "platform/avfoundation/engine/PlayerVideoOutput.h"
#include "platform/avfoundation/engine/TimeObserver.h"
#include "platform/media/playback/Playback.h"

namespace zaffo {

/// The platform's own AVPlayer: gives each item a media::Playback and carries its events to the
/// main thread.
class EnginePlayer final : public AVPlayer, public std::enable_shared_from_this<EnginePlayer> {
 public:
  [[nodiscard]] static std::shared_ptr<EnginePlayer> create(media::AudioOutput& output);
  ~EnginePlayer() override;

  [[nodiscard]] float rate() const override { return rate_; }
  void setRate(float rate) override;
  [[nodiscard]] float volume() const override { return volume_; }
  void setVolume(float volume) override;
  [[nodiscard]] CMTime currentTime() const override;
  [[nodiscard]] std::shared_ptr<AVPlayerItem> currentItem() const override;
  [[nodiscard]] AVPlayerStatus status() const override;
  [[nodiscard]] NSErrorPtr error() const override;
  void replaceCurrentItemWithPlayerItem(std::shared_ptr<AVPlayerItem> item) override;
  void seekToTime(CMTime time) override;
  void seekToTime(CMTime time, CMTime toleranceBefore, CMTime toleranceAfter,
                  SeekCompletion completion) override;
  void prerollAtRate(float rate, PrerollCompletion completion) override;
  void cancelPendingPrerolls() override;
  [[nodiscard]] std::shared_ptr<void> addBoundaryTimeObserverForTimes(
      std::vector<CMTime> times, DispatchQueuePtr queue, std::function<void()> block) override;
  [[nodiscard]] std::shared_ptr<void> addPeriodicTimeObserverForInterval(
      CMTime interval, DispatchQueuePtr queue, std::function<void(CMTime)> block) override;
  void removeTimeObserver(const std::shared_ptr<void>& token) override;
  [[nodiscard]] std::shared_ptr<media::VideoOutput> videoOutput() const override { return output_; }

 private:
  explicit EnginePlayer(media::AudioOutput& output);
  void itemSettled(const std::shared_ptr<PlayerItem>& item);
  void openPlayback();
  void closePlayback();
  void failPrerolls();
  void mediaServicesWereReset();
  [[nodiscard]] std::shared_ptr<void> addObserver(std::shared_ptr<TimeObserver> observer);
  [[nodiscard]] std::shared_ptr<media::Playback> playback() const;
  [[nodiscard]] media::Playback::Events eventsFor(const std::shared_ptr<PlayerItem>& item);
  /// `error` tells why it stopped before its end; null at the end.
  void playbackStopped(uint64_t command, const NSErrorPtr& error);
  void setItem(std::shared_ptr<PlayerItem> item);

  media::AudioOutput& audioOutput_;
  const std::shared_ptr<PlayerVideoOutput> output_ = std::make_shared<PlayerVideoOutput>();
  std::atomic<float> rate_{0};
  std::atomic<float> volume_{1};

  mutable Mutex itemMutex_;
  std::shared_ptr<PlayerItem> item_ ZAFFO_GUARDED_BY(itemMutex_);
  std::shared_ptr<media::Playback> playback_ ZAFFO_GUARDED_BY(itemMutex_);
  NSErrorPtr error_ ZAFFO_GUARDED_BY(itemMutex_);

  // The main thread's.
  std::shared_ptr<void> resetObservation_;
  uint64_t openings_ = 0;                           ///< playbacks made so far
  std::vector<PrerollCompletion> waitingPrerolls_;  ///< asked for before the item was ready
  std::vector<std::shared_ptr<TimeObserver>> observers_;
};

}  // namespace zaffo
