// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/Mutex.h"
#include "platform/avfoundation/AVPlayerItem.h"
#include "platform/media/source/BufferedAhead.h"

namespace zaffo {

class AVPlayer;

namespace media {
class Playback;
}

/// The platform's own AVPlayerItem. Its player asks it to prepare and tells it of failures.
class PlayerItem final : public AVPlayerItem, public std::enable_shared_from_this<PlayerItem> {
 public:
  explicit PlayerItem(std::shared_ptr<AVAsset> asset) : asset_(std::move(asset)) {}

  [[nodiscard]] AVPlayerItemStatus status() const override;
  [[nodiscard]] NSErrorPtr error() const override;
  [[nodiscard]] const std::shared_ptr<AVAsset>& asset() const override { return asset_; }
  [[nodiscard]] CMTime duration() const override;
  [[nodiscard]] std::shared_ptr<const AVAudioMix> audioMix() const override;
  void setAudioMix(std::shared_ptr<const AVAudioMix> mix) override;
  [[nodiscard]] std::vector<CMTimeRange> loadedTimeRanges() const override;
  [[nodiscard]] bool isPlaybackBufferEmpty() const override;
  [[nodiscard]] bool isPlaybackLikelyToKeepUp() const override;
  [[nodiscard]] bool isPlaybackBufferFull() const override;

  /// Settles the status: at once when the asset's keys have ended, otherwise after loading them, in
  /// which case `settled` is called on the main queue. Thread: main.
  void prepare(std::function<void()> settled);
  /// An item belongs to one player at a time. False while another one than `player` has it.
  /// Thread: any.
  [[nodiscard]] bool claim(const AVPlayer& player);
  void giveUp(const AVPlayer& player);
  /// What plays it; null when nothing does any more. Thread: any.
  void setPlayback(std::weak_ptr<const media::Playback> playback);
  /// The item cannot be played, or not to its end. Thread: any.
  void fail(NSErrorPtr error);

 private:
  /// What is at hand, and where its player is.
  struct Buffer {
    media::BufferedAhead ahead;
    CMTime position = kCMTimeZero;
    bool isEmpty = true;
  };
  [[nodiscard]] std::optional<Buffer> buffer() const;
  void settle();
  [[nodiscard]] NSErrorPtr reasonNotToPlay() const;

  const std::shared_ptr<AVAsset> asset_;
  mutable Mutex statusMutex_;
  AVPlayerItemStatus status_ ZAFFO_GUARDED_BY(statusMutex_) = AVPlayerItemStatus::Unknown;
  NSErrorPtr error_ ZAFFO_GUARDED_BY(statusMutex_);
  std::shared_ptr<const AVAudioMix> audioMix_ ZAFFO_GUARDED_BY(statusMutex_);
  std::weak_ptr<const media::Playback> playback_ ZAFFO_GUARDED_BY(statusMutex_);
  const AVPlayer* player_ ZAFFO_GUARDED_BY(statusMutex_) = nullptr;  ///< gives it up before it goes
};

}  // namespace zaffo
