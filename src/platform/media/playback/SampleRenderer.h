// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "platform/Mutex.h"
#include "platform/coremedia/CMTimebase.h"
#include "platform/dispatch/DispatchTimer.h"
#include "platform/dispatch/MediaQueues.h"
#include "platform/media/playback/DecodeBurst.h"
#include "platform/media/playback/RenderedSamples.h"
#include "platform/media/video/Lateness.h"
#include "platform/media/video/MediaDataRequest.h"

namespace zaffo::media {

/// Decodes the compressed samples that it is given and shows each at its time by a timebase that
/// somebody else moves. Everything runs on a serial queue of its own, woken by samples that it
/// waits for, by changes of the timebase, and by a timer for the next thing due; while it stands
/// still nothing runs. Calls return at once. Thread: any; one at a time for samples and flushes.
///
/// A failure (see RendererStatus) is that of the samples since the last flush. It is not found as
/// long as more of them may come, nor after the calls were stopped from elsewhere than one of them:
/// whoever does that is about to flush, and would take the failure for one of what comes then. A
/// request for more lifts that.
///
/// While the timebase stands still it decodes up to the picture that is due and keeps that one and
/// the samples, and after a while nothing else; while it moves, a few frames ahead.
class SampleRenderer : public std::enable_shared_from_this<SampleRenderer> {
 public:
  using Status = RendererStatus;
  using Image = RenderedSamples::Image;

  /// Called on any thread with no lock held; a call may be under way while close() is called.
  struct Events {
    std::function<void()> pictureChanged;
    std::function<void()> statusChanged;
  };

  [[nodiscard]] static std::shared_ptr<SampleRenderer> create(Events events);
  SampleRenderer(const SampleRenderer&) = delete;
  SampleRenderer& operator=(const SampleRenderer&) = delete;

  /// The host clock's own time line with null, as at first.
  void setTimebase(std::shared_ptr<CMTimebase> timebase);

  void enqueue(QueuedSample sample);
  void flush(Image image);
  [[nodiscard]] bool isReadyForMore();
  void requestWhenReady(DispatchQueuePtr queue, std::function<void()> block);
  void stopRequesting();
  void expectSamples() { dataRequest_->expect(); }

  [[nodiscard]] Status status() const { return samples_.status(); }
  [[nodiscard]] NSErrorPtr error() const { return samples_.error(); }
  [[nodiscard]] const std::shared_ptr<FrameStore>& frames() const { return samples_.frames(); }

  /// Ends everything; what is held is let go of on a worker.
  void close();

 private:
  explicit SampleRenderer(Events events);

  [[nodiscard]] CMTime now() const;
  void wake();
  void observe(const std::shared_ptr<CMTimebase>& timebase);

  // All below is the queue's.
  void pump();
  void beginGeneration();
  [[nodiscard]] bool decode(const CMTimebase& timebase, int64_t hostNow);
  [[nodiscard]] SampleQueueDecoder::Demand demandAt(const CMTimebase& timebase, int64_t hostNow);
  void give(SampleQueueDecoder::Picture picture, CMTime now);
  void dropQueued();
  void rest(int64_t hostNow);
  [[nodiscard]] bool fail(NSErrorPtr error);
  void schedule(const CMTimebase& timebase, bool isBusy);
  [[nodiscard]] std::optional<int64_t> nextPumpHostTime(const CMTimebase& timebase) const;
  void letGo();

  const Events events_;
  const std::shared_ptr<SerialQueue> queue_;
  RenderedSamples samples_;
  const std::shared_ptr<MediaDataRequest> dataRequest_ = std::make_shared<MediaDataRequest>();
  std::atomic<bool> closed_{false};
  std::atomic<bool> wakePosted_{false};
  Mutex observationMutex_;
  std::shared_ptr<void> timebaseObservation_ ZAFFO_GUARDED_BY(observationMutex_);

  SampleQueueDecoder decoder_{samples_.queue()};
  DecodeBurst burst_;
  CMTime lastTime_ = kCMTimeNegativeInfinity;  ///< at the last pump of this generation
  Lateness lateness_;
  bool failed_ = false;            ///< until the next generation
  bool awaitsQuiet_ = false;       ///< more is known once no sample is on its way
  std::optional<int64_t> restAt_;  ///< host time at which it has stood still for long
  DispatchTimerPtr timer_;
};

}  // namespace zaffo::media
