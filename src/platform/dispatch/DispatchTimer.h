// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>

#include "platform/Export.h"
#include "platform/dispatch/DispatchQueue.h"

namespace zaffo {

/// A delayed or repeating block, timed by the TimeSource in force when it is created; once that is
/// replaced, the timer never fires again. Destroying the handle does not cancel it: until it is
/// cancelled, or has run its one time, the timer holds its queue and its block. Thread: any.
class ZAFFO_EXPORT DispatchTimer {
 public:
  virtual ~DispatchTimer() = default;

  /// When called on the timer's queue, no run starts after this returns; when called from another
  /// thread, a run in progress may still finish. Idempotent; releases the block.
  virtual void cancel() = 0;
};

using DispatchTimerPtr = std::shared_ptr<DispatchTimer>;

/// Runs `block` on `queue` once, `delay` nanoseconds from now (at once when not positive).
[[nodiscard]] ZAFFO_EXPORT DispatchTimerPtr dispatch_timer_after(int64_t delay,
                                                                 const DispatchQueuePtr& queue,
                                                                 DispatchBlock block);

/// Runs `block` on `queue` when TimeSource::now() reaches `deadline` nanoseconds. Timers with the
/// same deadline are handed to their queues in order of creation.
[[nodiscard]] ZAFFO_EXPORT DispatchTimerPtr dispatch_timer_at(int64_t deadline,
                                                              const DispatchQueuePtr& queue,
                                                              DispatchBlock block);

/// Runs `block` on `queue` every `interval` nanoseconds (at least a microsecond), first after one
/// interval, without drift. Runs that a busy queue could not start in time are merged into one.
[[nodiscard]] ZAFFO_EXPORT DispatchTimerPtr dispatch_timer_every(int64_t interval,
                                                                 const DispatchQueuePtr& queue,
                                                                 DispatchBlock block);

}  // namespace zaffo
