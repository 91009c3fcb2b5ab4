// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "platform/avfoundation/AVPlayerItem.h"
#include "platform/dispatch/DispatchQueue.h"

namespace zaffo {

namespace media {
class VideoOutput;
}

enum class AVPlayerStatus { Unknown = 0, ReadyToPlay = 1, Failed = 2 };

/// Plays one item at a time, sound and picture. No call waits: opening, decoding and ending run on
/// workers. Abstract so that a test can script it. Thread: main; the reads may be made on any.
class ZAFFO_EXPORT AVPlayer {
 public:
  using SeekCompletion = std::function<void(bool finished)>;
  using PrerollCompletion = std::function<void(bool finished)>;

  [[nodiscard]] static std::shared_ptr<AVPlayer> create();
  virtual ~AVPlayer() = default;

  /// 0 stands still, 1 plays. Negative, infinite and NaN rates are taken as 0. The rate may be set
  /// with no item and stays when items change; it becomes 0 at the end of the item.
  [[nodiscard]] virtual float rate() const = 0;
  virtual void setRate(float rate) = 0;
  /// 0 to 1; values outside are clamped.
  [[nodiscard]] virtual float volume() const = 0;
  virtual void setVolume(float volume) = 0;

  [[nodiscard]] virtual CMTime currentTime() const = 0;
  [[nodiscard]] virtual std::shared_ptr<AVPlayerItem> currentItem() const = 0;
  [[nodiscard]] virtual AVPlayerStatus status() const = 0;
  [[nodiscard]] virtual NSErrorPtr error() const = 0;

  /// Puts `item` (or nothing) in place of the present one; seeks and prerolls under way end with
  /// false. The first picture is decoded at once, before anyone asks for a preroll. An item belongs
  /// to one player at a time: throws NSErrorException, and changes nothing, while another has it.
  virtual void replaceCurrentItemWithPlayerItem(std::shared_ptr<AVPlayerItem> item) = 0;

  /// Seeks with the tolerances that are quickest.
  virtual void seekToTime(CMTime time) = 0;
  /// Shows a frame within [time - before, time + after]: that of the sync sample before `time`, or
  /// else of the one after it, where they are within; otherwise, and with zero tolerances, the very
  /// frame. A tolerance counts by its absolute value, and one that is neither numeric nor
  /// kCMTimePositiveInfinity for none.
  /// `completion` is called once on the main queue: true when the frame is ready to be shown,
  /// false when a newer seek or another item came first.
  virtual void seekToTime(CMTime time, CMTime toleranceBefore, CMTime toleranceAfter,
                          SeekCompletion completion) = 0;

  /// Gets ready to start at `rate` without delay: the first frame is decoded, the sound buffer is
  /// filled. `completion` is called once, on the main queue; false when it was cancelled.
  virtual void prerollAtRate(float rate, PrerollCompletion completion) = 0;
  virtual void cancelPendingPrerolls() = 0;

  /// Calls `block` on `queue` whenever playback passes one of `times` or starts at it, until the
  /// token is removed.
  [[nodiscard]] virtual std::shared_ptr<void> addBoundaryTimeObserverForTimes(
      std::vector<CMTime> times, DispatchQueuePtr queue, std::function<void()> block) = 0;
  /// Calls `block` on `queue` with the time: every `interval` of media time while playing, and at
  /// once when the rate changes or the time jumps.
  [[nodiscard]] virtual std::shared_ptr<void> addPeriodicTimeObserverForInterval(
      CMTime interval, DispatchQueuePtr queue, std::function<void(CMTime)> block) = 0;
  virtual void removeTimeObserver(const std::shared_ptr<void>& token) = 0;

  /// Where AVPlayerLayer gets the pictures; null in doubles.
  [[nodiscard]] virtual std::shared_ptr<media::VideoOutput> videoOutput() const;
};

}  // namespace zaffo
