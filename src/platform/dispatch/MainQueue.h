// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>

#include "platform/Mutex.h"
#include "platform/dispatch/QueueBase.h"

namespace zaffo {

/// The blocks of the main thread, and a descriptor that polls readable while there are any or a
/// timer of the main queue is due. One per process, never destroyed.
class MainQueue final : public QueueBase {
 public:
  [[nodiscard]] static MainQueue& shared();

  void async(DispatchBlock block) override;

  /// Runs blocks that were queued, and timers that were due, before the call, until `stops` returns
  /// true after one. Returns how many ran. Turns may be nested. Thread: main.
  int runTurn(const std::function<bool()>& stops);

  /// Waits until there is a block, a timer due or a wake-up, at most `timeout` nanoseconds of the
  /// machine's clock; forever when negative. Thread: main.
  void wait(int64_t timeout);

  /// Ends a wait without a block to run. Thread: any.
  void wake();

  [[nodiscard]] int fileDescriptor() const { return fileDescriptor_; }
  /// The part of it that tells of blocks and wake-ups.
  [[nodiscard]] int signalDescriptor() const { return signalDescriptor_; }

 private:
  MainQueue();
  ~MainQueue() override = default;
  [[nodiscard]] bool mustSignalWhileLocked() ZAFFO_REQUIRES(blocksMutex_);
  void signal() const;
  void clearSignalWhileLocked() ZAFFO_REQUIRES(blocksMutex_);
  [[nodiscard]] uint64_t endOfTurn();
  [[nodiscard]] DispatchBlock takeBefore(uint64_t end);

  const int signalDescriptor_;
  const int fileDescriptor_;
  Mutex blocksMutex_;
  std::deque<DispatchBlock> blocks_ ZAFFO_GUARDED_BY(blocksMutex_);
  uint64_t taken_ ZAFFO_GUARDED_BY(blocksMutex_) = 0;      // blocks that have left blocks_
  bool signalled_ ZAFFO_GUARDED_BY(blocksMutex_) = false;  // or about to be
};

}  // namespace zaffo
