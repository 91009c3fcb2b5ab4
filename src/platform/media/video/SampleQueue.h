// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>

#include "platform/Mutex.h"
#include "platform/coremedia/CMSampleBuffer.h"
#include "platform/media/ReorderHorizon.h"
#include "platform/media/video/DecodeOnlyRun.h"

namespace zaffo::media {

/// A compressed sample on its way to the screen. Immutable once it is in a queue.
struct QueuedSample {
  Sample sample;
  std::shared_ptr<const CMFormatDescription> format;
  bool displayImmediately = false;
  /// The queue's: no sample behind this one is presented before this time.
  CMTime horizon = kCMTimeNegativeInfinity;
};
using QueuedSamplePtr = std::shared_ptr<const QueuedSample>;

/// The compressed samples of a renderer in decode order: those that were sent to the decoder since
/// the sync sample that decoding of the picture on show starts from, and those that were not yet.
///
///     kept (sent, to start again from)      waiting
///     [sync] [ ] [ ] [ ] [ ] [ ] [ ] [ ] [ ] [ ] [ ]
///                                     ^ next
///
/// One side enqueues and flushes, the other decodes. Each flush begins a generation; what the
/// decoding side asks for an older one is answered with nothing. Thread: any.
class SampleQueue {
 public:
  using Held = std::deque<QueuedSamplePtr>;

  // The enqueueing side.

  /// True when the decoding side waits for a sample like this one.
  [[nodiscard]] bool push(QueuedSample sample);
  /// Begins a generation; gives what was held, to be let go of where that takes no one's time.
  [[nodiscard]] Held flush();
  /// Whether there is room: less than four seconds wait to become due after `now`, and less than
  /// 16 MiB wait at all.
  [[nodiscard]] bool hasRoom(CMTime now) const;
  /// Whether no sample can come any more that is presented at `time` or before.
  [[nodiscard]] bool reaches(CMTime time) const;
  /// Whether there is so much room that asking for more is worth it: a quarter of both.
  [[nodiscard]] bool hasAmpleRoom(CMTime now) const;

  // The decoding side.

  [[nodiscard]] uint64_t generation() const;

  struct Outlook {
    bool stale = false;  ///< the generation is over
    /// The latest presentation in (after, now] that waits; invalid when none does.
    CMTime due = kCMTimeInvalid;
    /// How many waiting samples need not be decoded for `due`: it lies after a later sync sample.
    std::size_t skippable = 0;
    /// Whether no sample can come any more that is to be shown at `now` or before.
    bool complete = false;
  };
  /// What waits up to `now`. While that is not complete, push() tells of every sample.
  [[nodiscard]] Outlook outlook(uint64_t generation, CMTime after, CMTime now);

  /// The next one to decode; null when there is none: then push() tells of the next one.
  [[nodiscard]] QueuedSamplePtr next(uint64_t generation);
  /// The next one was sent to the decoder and is kept.
  void markSent(uint64_t generation);
  /// Forgets the first `count` of those that wait, and what is kept. How many of the former were to
  /// be shown.
  std::size_t skip(uint64_t generation, std::size_t count);
  /// Forgets what is kept: decoding goes on, and nothing is to be decoded again.
  void forgetSent(uint64_t generation);
  /// Goes back to the first one that is kept; false, and nothing changes, when decoding cannot
  /// start there.
  [[nodiscard]] bool rewind(uint64_t generation);
  /// The same, if one that is held is to be shown at `time` or before.
  [[nodiscard]] bool rewindTo(uint64_t generation, CMTime time);
  /// What is on show is at `shown`: what decoding does not need to go on from there is forgotten.
  void trim(uint64_t generation, CMTime shown);
  /// How many frames more than otherwise are to be decoded ahead, for the runs of samples that
  /// begin with some that are not shown. Nothing was to be seen before the first run.
  [[nodiscard]] std::size_t framesForDecodeOnlyRun() const;
  /// Whether what was sent is kept from a sync sample on: more than a bound is not.
  [[nodiscard]] bool keepsSent() const;
  /// Pixels that decoding the kept ones takes; the largest number when it cannot start there.
  [[nodiscard]] int64_t pixelsToDecodeAgain() const;

 private:
  [[nodiscard]] CMTime aheadWhileLocked(CMTime now) const ZAFFO_REQUIRES(samplesMutex_);
  void forgetWhileLocked(std::size_t count, Held& forgotten) ZAFFO_REQUIRES(samplesMutex_);
  [[nodiscard]] bool rewindWhileLocked() ZAFFO_REQUIRES(samplesMutex_);
  [[nodiscard]] bool startsSyncWhileLocked() const ZAFFO_REQUIRES(samplesMutex_);

  struct RestartPoint {
    uint64_t position = 0;  ///< counted from the first sample of the generation
    CMTime firstShown;      ///< presentation of the first one from here on that is shown
  };

  mutable Mutex samplesMutex_;
  uint64_t generation_ ZAFFO_GUARDED_BY(samplesMutex_) = 0;
  Held samples_ ZAFFO_GUARDED_BY(samplesMutex_);
  std::size_t next_ ZAFFO_GUARDED_BY(samplesMutex_) = 0;
  uint64_t forgotten_ ZAFFO_GUARDED_BY(samplesMutex_) = 0;  ///< position of the first held one
  std::size_t waitingBytes_ ZAFFO_GUARDED_BY(samplesMutex_) = 0;
  std::size_t keptBytes_ ZAFFO_GUARDED_BY(samplesMutex_) = 0;
  /// Sync samples among the kept ones, but for the first.
  std::deque<RestartPoint> restartPoints_ ZAFFO_GUARDED_BY(samplesMutex_);
  CMTime latest_ ZAFFO_GUARDED_BY(samplesMutex_) = kCMTimeInvalid;  ///< presentation
  /// No sample can come any more that is to be shown at this time or before.
  CMTime settled_ ZAFFO_GUARDED_BY(samplesMutex_) = kCMTimeInvalid;
  DecodeOnlyRun decodeOnlyRun_ ZAFFO_GUARDED_BY(samplesMutex_);  ///< of what arrives
  ReorderHorizon horizon_ ZAFFO_GUARDED_BY(samplesMutex_);
  bool awaited_ ZAFFO_GUARDED_BY(samplesMutex_) = true;
};

}  // namespace zaffo::media
