// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/Mutex.h"
#include "platform/foundation/NSError.h"
#include "platform/media/video/FrameStore.h"
#include "platform/media/video/SampleQueue.h"
#include "platform/media/video/SampleQueueDecoder.h"

namespace zaffo::media {

/// What became of the samples that a renderer was given.
///
///              enqueue                 nothing can be decoded
///     Unknown ─────────▶ Rendering ───────────────────────────▶ Failed
///        ▲                                                         │
///        └─────────────────── flush, picture removed ──────────────┘
enum class RendererStatus { Unknown, Rendering, Failed };

/// The samples that a renderer was given since the last flush, the pictures of them, and their
/// status. All three change together, so that nothing is ever shown of samples that were flushed,
/// and no failure of theirs told: pictures and failures come with the generation (see SampleQueue)
/// that they belong to.
/// Thread: any; one at a time for enqueue() and flush().
class RenderedSamples {
 public:
  using Status = RendererStatus;
  enum class Image { Keep, Remove };

  /// Pictures are shown by `timebase`.
  explicit RenderedSamples(std::shared_ptr<const CMTimebase> timebase)
      : frames_(std::make_shared<FrameStore>(std::move(timebase))) {}

  struct Enqueued {
    bool isTaken = false;    ///< not after a failure
    bool isFirst = false;    ///< the status is Rendering from now on
    bool isAwaited = false;  ///< the decoding side waits for it
  };
  [[nodiscard]] Enqueued enqueue(QueuedSample sample);

  struct Flushed {
    SampleQueue::Held held;  ///< to be let go of where that takes no one's time
    bool recovers = false;   ///< the status is Unknown again
  };
  /// Begins a generation. A picture that is kept has no presentation time any more.
  [[nodiscard]] Flushed flush(Image image);

  /// Shows `picture`, or queues it until it is due. Returns whether the picture on show at `now`
  /// changes.
  [[nodiscard]] bool give(SampleQueueDecoder::Picture picture, uint64_t generation, CMTime now);
  /// Forgets what waits behind the picture on show.
  void dropQueued(uint64_t generation);
  /// False when the samples that failed were flushed.
  [[nodiscard]] bool fail(NSErrorPtr error, uint64_t generation);

  [[nodiscard]] Status status() const;
  /// Why it failed; null otherwise.
  [[nodiscard]] NSErrorPtr error() const;
  [[nodiscard]] SampleQueue& queue() { return queue_; }
  [[nodiscard]] const SampleQueue& queue() const { return queue_; }
  [[nodiscard]] const std::shared_ptr<FrameStore>& frames() const { return frames_; }

 private:
  const std::shared_ptr<FrameStore> frames_;
  SampleQueue queue_;

  mutable Mutex changeMutex_;  ///< held over what changes together
  Status status_ ZAFFO_GUARDED_BY(changeMutex_) = Status::Unknown;
  NSErrorPtr error_ ZAFFO_GUARDED_BY(changeMutex_);
};

}  // namespace zaffo::media
