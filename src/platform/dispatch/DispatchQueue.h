// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/Export.h"

namespace zaffo {

using DispatchBlock = std::function<void()>;

/// Where blocks run: the main queue, a serial queue of one's own, or a global concurrent queue.
/// Queues own no threads: they share one pool with one worker more than cores. Thread: any.
class ZAFFO_EXPORT DispatchQueue {
 public:
  virtual ~DispatchQueue() = default;

  /// Runs `block` later, never inside the call. Serial queues and the main queue keep the order.
  /// The block and what it holds are released on the queue, right after it has run. An empty block
  /// does nothing; an exception that escapes a block ends the program.
  virtual void async(DispatchBlock block) = 0;

  [[nodiscard]] virtual const std::string& label() const = 0;

  /// Stores `context` under `key` on this queue; the queue does not own it. Null removes it.
  virtual void setSpecific(const void* key, void* context) = 0;
  [[nodiscard]] virtual void* specific(const void* key) const = 0;

  /// Whether the caller is running in a block of this queue.
  [[nodiscard]] virtual bool isCurrent() const = 0;
};

using DispatchQueuePtr = std::shared_ptr<DispatchQueue>;

/// Priorities of the global queues; the values are the platform's.
enum DispatchQueuePriority : long {
  DISPATCH_QUEUE_PRIORITY_HIGH = 2,
  DISPATCH_QUEUE_PRIORITY_DEFAULT = 0,
  DISPATCH_QUEUE_PRIORITY_LOW = -2,
  DISPATCH_QUEUE_PRIORITY_BACKGROUND = -32768,
};

/// A new serial queue: one block at a time, in submission order. Blocks still queued keep it alive.
[[nodiscard]] ZAFFO_EXPORT DispatchQueuePtr dispatch_queue_create(std::string label);

/// A new serial queue whose blocks may wait for the outside world (a network read, a device being
/// opened): it runs on a set of threads that grows with need, to 64, and shrinks again.
[[nodiscard]] ZAFFO_EXPORT DispatchQueuePtr dispatch_queue_create_blocking(std::string label);

/// The queue whose blocks run in turns of the MainLoop, on the main thread.
[[nodiscard]] ZAFFO_EXPORT const DispatchQueuePtr& dispatch_get_main_queue();

/// The concurrent queue of a priority; a waiting block of higher priority starts first.
[[nodiscard]] ZAFFO_EXPORT const DispatchQueuePtr& dispatch_get_global_queue(
    DispatchQueuePriority priority);

ZAFFO_EXPORT void dispatch_async(const DispatchQueuePtr& queue, DispatchBlock block);
ZAFFO_EXPORT void dispatch_queue_set_specific(const DispatchQueuePtr& queue, const void* key,
                                              void* context);
/// The value stored under `key` on the queue whose block is running; null elsewhere.
[[nodiscard]] ZAFFO_EXPORT void* dispatch_get_specific(const void* key);

/// Waits until no worker, of the shared pool or of the blocking queues, has a block queued or
/// running. Does not wait for blocks of the main queue or timers that are not due. For tests and an
/// orderly exit; a fatal error when called from a block on a worker, which would wait for itself.
///
/// At exit() no further block is started and running blocks get half a second to finish; those
/// still queued are abandoned.
ZAFFO_EXPORT void dispatch_wait_until_idle();

}  // namespace zaffo
