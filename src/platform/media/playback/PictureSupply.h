// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>

#include "platform/dispatch/MediaQueues.h"
#include "platform/media/playback/DecodeBurst.h"
#include "platform/media/playback/ItemEnd.h"
#include "platform/media/playback/SeekRequest.h"
#include "platform/media/video/FrameStore.h"
#include "platform/media/video/Lateness.h"
#include "platform/media/video/VideoTrack.h"

namespace zaffo::media {

/// The pictures of a playback: finds the frame of a seek, then decodes a few frames ahead of the
/// one on show. The first frame of the item is kept, so that going back to it needs no decoder.
/// Does nothing for an item without pictures. Thread: one at a time.
class PictureSupply {
 public:
  /// The first video track of `source`. Frames are shown in `frames`; `duration` is the item's.
  PictureSupply(const std::shared_ptr<SampleSource>& source, std::shared_ptr<FrameStore> frames,
                CMTime duration);

  [[nodiscard]] bool exists() const { return track_ != nullptr; }
  /// Of what was read last.
  [[nodiscard]] PictureLoad load() const { return pictureLoad(track_ ? track_->pixels() : 0); }
  /// Called, on any thread, when the source has something again. Set before the first search.
  void setReadyHandler(const std::function<void()>& handler);

  /// Forgets the frames that wait behind the one on show, and begins to look for the frame to go on
  /// from.
  void beginSearch(const SeekRequest& seek);
  /// Ready when it is found; Again while the source has nothing yet, which the ready handler will
  /// tell. End or Error when there is no such frame: error() may tell why.
  [[nodiscard]] Outcome stepSearch();
  /// Whether a frame to be shown meanwhile is being decoded: a few steps.
  [[nodiscard]] bool isMakingPreview() const { return track_ && track_->isMakingPreview(); }
  [[nodiscard]] bool hasPreview() const { return track_ && track_->hasPreview(); }
  /// Shows the frame of the sync sample before what is looked for; it is a mere picture. False when
  /// there is none, or it is on show.
  [[nodiscard]] bool showPreview();
  /// The presentation of what was found; invalid where there are no pictures.
  [[nodiscard]] CMTime foundTime() const { return found_.presentation; }
  /// Shows what was found. The playback stands at `position` then.
  void showFound(CMTime position);

  /// Decodes if it is time to: up to the next frame, but for a turn at most, so that the caller can
  /// see to other things. `now` is the time that should be on show. Asks `isSuperseded` before each
  /// step, and stops when it is.
  void decodeAhead(CMTime now, const std::function<bool()>& isSuperseded);
  /// Whether decodeAhead() is to be called again at once.
  [[nodiscard]] bool isBusy() const { return burst_.isOn() && !waits_; }
  /// The media time at which it is to be called again otherwise, if that is known.
  [[nodiscard]] std::optional<CMTime> nextWake() const;

  /// Whether no frame that is shown after `now` is there, although there should be.
  [[nodiscard]] bool isDry(CMTime now) const;
  /// The media time from which on there is none, while only the source can bring it.
  [[nodiscard]] std::optional<CMTime> runsDryAt() const;

  /// How far they have been decoded; none where there are no pictures.
  [[nodiscard]] std::optional<DataEnd> end() const;
  /// Until when the last frame is shown if none follows.
  [[nodiscard]] CMTime endOfLastFrame() const { return endOfLast_; }
  /// Why no more frames can be decoded; null while all is well.
  [[nodiscard]] const NSErrorPtr& error() const { return error_; }

  /// For a playback that stands still: lets go of the decoder if it is quickly had again.
  void rest();
  /// For one that has stood still for a while: keeps the frame on show. What follows it is decoded
  /// again, from the sync sample before it, should it ever be asked for.
  void letGo();
  /// Whether there is something for letGo() to do.
  [[nodiscard]] bool holdsMore() const;
  /// Lets go of everything; nothing is on show any more.
  void close();

 private:
  [[nodiscard]] bool takeFirstFrame(CMTime target);
  [[nodiscard]] bool keepsOtherThan(CMTime shown) const;
  [[nodiscard]] bool step(CMTime now);
  [[nodiscard]] CMTime endOf(const VideoFrame& frame) const;
  [[nodiscard]] std::size_t framesForDecodeOnlyRun() const;

  const std::shared_ptr<FrameStore> frames_;
  const CMTime duration_;
  std::unique_ptr<VideoTrack> track_;
  VideoFrame found_;
  std::optional<VideoFrame> first_;  ///< for rewinds
  CMTime endOfLast_ = kCMTimeZero;
  NSErrorPtr error_;
  DecodeBurst burst_;
  Lateness lateness_;
  bool hasEnded_ = false;
  bool waits_ = false;  ///< for the source
};

}  // namespace zaffo::media
