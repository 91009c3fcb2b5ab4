// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>

#include "platform/Export.h"
#include "platform/dispatch/DispatchQueue.h"

namespace zaffo {

/// Anything that can be cancelled. Cancelling never calls the completion of what is cancelled, and
/// may be repeated. Dropping a command does not cancel it.
class ZAFFO_EXPORT ZFCancelCommand {
 public:
  virtual ~ZFCancelCommand() = default;
  virtual void cancel() = 0;
};

using ZFCancelCommandPtr = std::shared_ptr<ZFCancelCommand>;

/// Returned when there is nothing to cancel.
class ZAFFO_EXPORT ZFNoopCancelCommand final : public ZFCancelCommand {
 public:
  [[nodiscard]] static const std::shared_ptr<ZFNoopCancelCommand>& sharedInstance();
  void cancel() override {}
};

/// Runs a block on cancel, on the caller's thread; a second cancel does nothing, and the block is
/// released once it has run. Thread: one at a time.
class ZAFFO_EXPORT ZFCallbackCancelCommand final : public ZFCancelCommand {
 public:
  explicit ZFCallbackCancelCommand(std::function<void()> cancelBlock);
  void cancel() override;

 private:
  std::function<void()> cancelBlock_;
};

/// A block that runs at most once, and not at all after cancel(). What it holds is released by
/// whichever of the two comes first. Thread: one at a time.
class ZAFFO_EXPORT ZFCancellableBlock final : public ZFCancelCommand {
 public:
  explicit ZFCancellableBlock(std::function<void()> block);
  void run();
  void cancel() override;

 private:
  std::function<void()> block_;
};

/// Runs `block` on `queue` every `seconds`, first after one period, until the command is cancelled
/// (DispatchTimer says what cancel() promises on and off the queue). Thread: any.
[[nodiscard]] ZAFFO_EXPORT ZFCancelCommandPtr dispatch_every(double seconds,
                                                             const DispatchQueuePtr& queue,
                                                             std::function<void()> block);

/// Runs `block` on `queue` once after `seconds`, unless the command is cancelled first; as soon as
/// possible when `seconds` is not positive or not a number. Thread: any.
[[nodiscard]] ZAFFO_EXPORT ZFCancelCommandPtr dispatch_after_cancellable(
    double seconds, const DispatchQueuePtr& queue, std::function<void()> block);

}  // namespace zaffo
