// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>

#include "platform/Mutex.h"
#include "platform/coremedia/CMTimebase.h"
#include "platform/media/codec/VideoDecoder.h"

namespace zaffo::media {

/// The decoded frames of one item: the one on show and those that follow it. The playback's queue
/// puts them in; whoever draws takes the one that is due by the timebase. Thread: any.
class FrameStore {
 public:
  explicit FrameStore(std::shared_ptr<const CMTimebase> timebase)
      : timebase_(std::move(timebase)) {}

  /// Goes over to another timebase; what waits is due by that one.
  void setTimebase(std::shared_ptr<const CMTimebase> timebase);
  [[nodiscard]] std::shared_ptr<const CMTimebase> timebase() const;

  /// Shows `frame` from now on and forgets every other.
  void show(VideoFrame frame);

  /// Appends a frame to be shown when the timebase reaches its presentation time.
  void push(VideoFrame frame);

  /// Forgets the frames that follow the one on show.
  void dropQueued();
  /// Forgets them, and when the one on show was due: it is a mere picture now.
  void keepPicture();

  /// Goes to the frame that is due at `time`. True when that is another one than before, and
  /// whoever draws is not about to come for it (see planNextDraw).
  bool advance(CMTime time);

  /// The frame that is due at a host time; null when there is none yet.
  [[nodiscard]] CVPixelBufferPtr bufferAtHostTime(int64_t hostNanoseconds);

  /// For who draws and comes back by itself: host time just after the next frame is due, if that is
  /// known. Nobody else need wake for that frame then.
  [[nodiscard]] std::optional<int64_t> planNextDraw();

  [[nodiscard]] bool hasFrame() const;
  /// The presentation time of the frame on show; invalid when there is none
  /// or it is a mere picture.
  [[nodiscard]] CMTime shownTime() const;
  [[nodiscard]] std::size_t queued() const;
  /// When its owner has something to do about the frames: when the next one is due while somebody
  /// draws who does not come by itself, otherwise when no more than `few` are left waiting. None
  /// while none waits.
  [[nodiscard]] std::optional<CMTime> nextWake(std::size_t few) const;
  /// Called, on the drawing thread, when somebody begins to draw or draws again after a pause. To
  /// be set before anybody draws.
  void setDrawingHandler(std::function<void()> began) { drawingBegan_ = std::move(began); }
  /// This many frames were due and were never pushed.
  void noteLate(std::size_t count);
  [[nodiscard]] bool somebodyDraws() const;
  /// Frames that were passed over and never drawn, while somebody drew.
  [[nodiscard]] uint64_t droppedFrames() const;

 private:
  /// When whoever draws is going to come, and the frame that is due then.
  struct Plan {
    int64_t host = 0;
    CMTime presentation;
  };

  [[nodiscard]] bool isPlannedWhileLocked(CMTime presentation, int64_t due) const
      ZAFFO_REQUIRES(framesMutex_);
  bool advanceWhileLocked(CMTime time) ZAFFO_REQUIRES(framesMutex_);
  void passOverWhileLocked() ZAFFO_REQUIRES(framesMutex_);

  std::function<void()> drawingBegan_;
  mutable Mutex framesMutex_;
  std::shared_ptr<const CMTimebase> timebase_ ZAFFO_GUARDED_BY(framesMutex_);
  VideoFrame current_ ZAFFO_GUARDED_BY(framesMutex_);
  bool currentWasDrawn_ ZAFFO_GUARDED_BY(framesMutex_) = false;
  std::deque<VideoFrame> queue_ ZAFFO_GUARDED_BY(framesMutex_);
  std::optional<Plan> plan_ ZAFFO_GUARDED_BY(framesMutex_);
  bool somebodyDraws_ ZAFFO_GUARDED_BY(framesMutex_) = false;
  int undrawnInARow_ ZAFFO_GUARDED_BY(framesMutex_) = 0;
  uint64_t dropped_ ZAFFO_GUARDED_BY(framesMutex_) = 0;
};

}  // namespace zaffo::media
