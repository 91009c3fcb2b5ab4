// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "platform/Mutex.h"
#include "platform/dispatch/Executor.h"
#include "platform/dispatch/QueueBase.h"

namespace zaffo {

/// One block at a time, in order, on the threads of an executor. The executor holds the queue while
/// it has blocks, so it is destroyed only when empty.
///
///     empty --async--> handed to the executor --> running --no block left--> empty
///                              ^------ others wait ---'
class SerialQueue final : public QueueBase,
                          public Runnable,
                          public std::enable_shared_from_this<SerialQueue> {
 public:
  SerialQueue(std::string label, Executor& executor)
      : QueueBase(std::move(label)), executor_(&executor) {}

  void async(DispatchBlock block) override;

  /// Handed to another executor from the next time on. Thread: any.
  void moveTo(Executor& executor) { executor_ = &executor; }

  /// Runs blocks until there are none or others wait for the thread.
  void run() override;

 private:
  [[nodiscard]] bool refillBatch();

  std::atomic<Executor*> executor_;
  std::vector<DispatchBlock> batch_;  // of the thread running the queue; one at a time
  size_t nextInBatch_ = 0;
  Mutex incomingMutex_;
  std::vector<DispatchBlock> incoming_ ZAFFO_GUARDED_BY(incomingMutex_);
  bool scheduled_ ZAFFO_GUARDED_BY(incomingMutex_) = false;
};

}  // namespace zaffo
