// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/GlobalQueue.h"

#include <memory>
#include <utility>

namespace zaffo {

/// One block; global queues are never destroyed, so it may refer to its queue.
class GlobalQueue::Task final : public Runnable {
 public:
  Task(const GlobalQueue& queue, DispatchBlock block) : queue_(queue), block_(std::move(block)) {}

  void run() override {
    const CurrentScope current(queue_);
    const DispatchBlock block = std::move(block_);
    block();
  }

 private:
  const GlobalQueue& queue_;
  DispatchBlock block_;
};

void GlobalQueue::async(DispatchBlock block) {
  if (block) executor_.execute(std::make_shared<Task>(*this, std::move(block)));
}

}  // namespace zaffo
