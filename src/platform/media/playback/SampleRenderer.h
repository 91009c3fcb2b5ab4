#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include "platform/Mutex.h"
#include "platform/coremedia/CMTimebase.h"
#include "platform/dispatch/DispatchTimer.h"
#include "platform/media/playback/DecodeBurst.h"
#include "platform/media/video/FrameStore.h"
#include "platform/media/video/MediaDataRequest.h"
#include "platform/media/video/SampleQueueDecoder.h"

namespace zaffo::media {

/// Decodes the compressed samples that it is given and shows each at its time by a timebase that
/// somebody else moves. Everything runs on a serial queue of its own, woken by samples that it
/// waits for, by changes of the timebase, and by a timer for the next thing due; while it stands
/// still nothing runs. Calls return at once. Thread: any; one at a time for samples and flushes.
///
///              enqueue                 nothing can be decoded
///     Unknown ─────────> Rendering ───────────────────────────> Failed
///        ^                                                         │
///        └─────────────────── flush, picture removed ──────────────┘
///
/// A failure is that of the samples since the last flush. It is not found as long as more of them
/// may come, nor after the calls were stopped from elsewhere than one of them: whoever does that is
/// about to flush, and would take the failure for one of what comes then. A request for more lifts
/// that.
///
/// While the timebase stands still it decodes up to the picture that is due and keeps that one and
/// the samples; while it moves, a few frames ahead.
class SampleRenderer : public std::enable_shared_from_this<SampleRenderer> {
 public:
  enum class Status { Unknown, Rendering, Failed };
  enum class Image { Keep, Remove };

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

  [[nodiscard]] Status status() const;
  [[nodiscard]] NSErrorPtr error() const;
  [[nodiscard]] const std::shared_ptr<FrameStore>& frames() const { return frames_; }

  /// Ends everything; what is held is let go of on a worker.
  void close();

 private:
  explicit SampleRenderer(Events events);

  [[nodiscard]] CMTime now() const;
  void wake();
  void pump();
  void beginGeneration();
  [[nodiscard]] bool decode(const CMTimebase& timebase, int64_t hostNow);
  void give(SampleQueueDecoder::Picture picture, CMTime now);
  void goBackTo(CMTime time);
  void dropQueued();
  void rest();
  void askForMore(CMTime now);
  [[nodiscard]] bool fail(NSErrorPtr error);
  void schedule(const CMTimebase& timebase, bool isBusy);

  const Events events_;
  const DispatchQueuePtr queue_;
  const std::shared_ptr<FrameStore> frames_;
  SampleQueue sampleQueue_;
  const std::shared_ptr<MediaDataRequest> dataRequest_ = std::make_shared<MediaDataRequest>();
  std::atomic<bool> closed_{false};
  std::atomic<bool> wakePosted_{false};

  /// Guards what is known of the samples as a whole, and that a frame goes to its generation.
  mutable Mutex statusMutex_;
  Status status_ ZAFFO_GUARDED_BY(statusMutex_) = Status::Unknown;
  NSErrorPtr error_ ZAFFO_GUARDED_BY(statusMutex_);
  std::shared_ptr<void> timebaseObservation_ ZAFFO_GUARDED_BY(statusMutex_);

  // All below is the queue's.
  SampleQueueDecoder decoder_{sampleQueue_};
  DecodeBurst burst_;
  bool failed_ = false;                        ///< until the next generation
  CMTime lastTime_ = kCMTimeNegativeInfinity;  ///< at the last pump of this generation
  int64_t lastGiven_ = 0;     ///< host time of the last frame, or of the start of the generation
  bool awaitsQuiet_ = false;  ///< more is known once no sample is on its way
  DispatchTimerPtr timer_;
};

}  // namespace zaffo::media
