// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>

#include "platform/avfoundation/AVPlayerLayer.h"
#include "platform/coremedia/CMSampleBuffer.h"
#include "platform/coremedia/CMTimebase.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/KeyValueObservation.h"
#include "platform/uikit/CALayer.h"

namespace zaffo {

enum class AVQueuedSampleBufferRenderingStatus { Unknown = 0, Rendering = 1, Failed = 2 };

/// Decodes and shows compressed samples at the times that a timebase gives. Samples are enqueued in
/// decode order. Abstract so that a test can script it.
///
/// Thread: as a layer, main. Everything below may be called on any thread, one at a time for
/// enqueueing and flushing.
class ZAFFO_EXPORT AVSampleBufferDisplayLayer : public CALayer {
 public:
  [[nodiscard]] static std::shared_ptr<AVSampleBufferDisplayLayer> create();

  /// What decides when a sample is shown. Without one the host clock does.
  [[nodiscard]] virtual std::shared_ptr<CMTimebase> controlTimebase() const = 0;
  virtual void setControlTimebase(std::shared_ptr<CMTimebase> timebase) = 0;

  /// ResizeAspect by default.
  [[nodiscard]] virtual AVLayerVideoGravity videoGravity() const = 0;
  virtual void setVideoGravity(AVLayerVideoGravity gravity) = 0;
  /// How samples are turned to be upright, in place of what the reader said of their track.
  virtual void setPreferredTransform(CGAffineTransform transform) = 0;

  /// Never waits. Ignored while the status is Failed.
  virtual void enqueueSampleBuffer(std::shared_ptr<CMSampleBuffer> sample) = 0;
  /// Forgets the samples that are not shown yet; the picture on show stays.
  virtual void flush() = 0;
  /// Forgets all samples and the picture too. A Failed layer can be used again.
  virtual void flushAndRemoveImage() = 0;
  /// How many times flushAndRemoveImage() has taken the picture away: one that is shown after this
  /// has grown is of samples that came later.
  [[nodiscard]] virtual uint64_t removedImages() const { return 0; }

  /// Whether there is room for more: false above some seconds of samples ahead, and above some
  /// bytes.
  [[nodiscard]] virtual bool isReadyForMoreMediaData() const = 0;
  /// Calls `block` on `queue` once now if there is room, and whenever there is room again, until
  /// stopRequestingMediaData(). Replaces an earlier request.
  virtual void requestMediaDataWhenReadyOnQueue(DispatchQueuePtr queue,
                                                std::function<void()> block) = 0;
  /// No call of the block begins after this returns, except on a queue that has begun it already.
  /// Within a call it says that there are no more samples for now. Elsewhere it says that these
  /// samples are being left for others: what cannot be decoded of them is no failure from then on,
  /// until there is a new request.
  virtual void stopRequestingMediaData() = 0;
  /// Within a call of the block: there is room, and no sample is here yet, but some will be.
  /// Whoever asks to be called does so anew when they are. Until then they count as being on their
  /// way.
  virtual void expectMediaData() {}

  /// Rendering from the first sample on; Failed when the samples since the last flush cannot be
  /// decoded: at once where there is no decoder, otherwise when a client that is called has brought
  /// all there is, or after 300 samples that should have been shown, and none gave a picture.
  /// Unknown until a turn of the main queue has passed since the layer's first sample: who makes a
  /// layer has that long to say who hears of its failure.
  [[nodiscard]] virtual AVQueuedSampleBufferRenderingStatus status() const = 0;
  /// Why the status is Failed; null otherwise.
  [[nodiscard]] virtual NSErrorPtr error() const = 0;
  /// Calls `changed` once after each change of status(), one after the other, until the observation
  /// ends. On any thread: that of the change, or the main one for the first.
  [[nodiscard]] virtual KeyValueObservation observeStatus(std::function<void()> changed) = 0;

  /// Whether there is a picture to show.
  [[nodiscard]] virtual bool isReadyForDisplay() const = 0;
  /// Pictures that were put on screen, and that became due but never were, since the layer was
  /// made.
  [[nodiscard]] virtual uint64_t presentedFrames() const = 0;
  [[nodiscard]] virtual uint64_t droppedFrames() const = 0;
  /// Host time (TimeSource, nanoseconds) at which a picture was first put on screen; 0 when none
  /// was yet.
  [[nodiscard]] virtual int64_t firstPresentedHostTime() const = 0;
};

}  // namespace zaffo
