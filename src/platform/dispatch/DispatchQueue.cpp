// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/DispatchQueue.h"

#include <utility>

#include "platform/FatalError.h"
#include "platform/dispatch/BlockingThreads.h"
#include "platform/dispatch/GlobalQueue.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/QueueBase.h"
#include "platform/dispatch/SerialQueue.h"
#include "platform/dispatch/WorkCount.h"
#include "platform/dispatch/WorkerPool.h"

namespace zaffo {

namespace {

/// A queue that lives until the process ends, beyond every static destructor.
const DispatchQueuePtr& immortalGlobalQueue(std::string label, DispatchQueuePriority priority) {
  return *new DispatchQueuePtr(
      std::make_shared<GlobalQueue>(std::move(label), WorkerPool::shared().executor(priority)));
}

}  // namespace

DispatchQueuePtr dispatch_queue_create(std::string label) {
  return std::make_shared<SerialQueue>(
      std::move(label), WorkerPool::shared().executor(DISPATCH_QUEUE_PRIORITY_DEFAULT));
}

DispatchQueuePtr dispatch_queue_create_blocking(std::string label) {
  return std::make_shared<SerialQueue>(std::move(label), BlockingThreads::shared());
}

const DispatchQueuePtr& dispatch_get_main_queue() {
  static const auto* const queue =
      new DispatchQueuePtr(std::shared_ptr<void>(), &MainQueue::shared());
  return *queue;
}

const DispatchQueuePtr& dispatch_get_global_queue(DispatchQueuePriority priority) {
  static const auto& high = immortalGlobalQueue("com.zaffoapp.global.high",  //
                                                DISPATCH_QUEUE_PRIORITY_HIGH);
  static const auto& standard =
      immortalGlobalQueue("com.zaffoapp.global.default", DISPATCH_QUEUE_PRIORITY_DEFAULT);
  static const auto& low =
      immortalGlobalQueue("com.zaffoapp.global.low", DISPATCH_QUEUE_PRIORITY_LOW);
  static const auto& background =
      immortalGlobalQueue("com.zaffoapp.global.background", DISPATCH_QUEUE_PRIORITY_BACKGROUND);
  if (priority == DISPATCH_QUEUE_PRIORITY_HIGH) return high;
  if (priority == DISPATCH_QUEUE_PRIORITY_LOW) return low;
  if (priority == DISPATCH_QUEUE_PRIORITY_BACKGROUND) return background;
  return standard;
}

void dispatch_async(const DispatchQueuePtr& queue, DispatchBlock block) {
  queue->async(std::move(block));
}

void dispatch_queue_set_specific(const DispatchQueuePtr& queue, const void* key, void* context) {
  queue->setSpecific(key, context);
}

void* dispatch_get_specific(const void* key) {
  const QueueBase* const queue = QueueBase::current();
  return queue ? queue->specific(key) : nullptr;
}

void dispatch_wait_until_idle() {
  const QueueBase* const queue = QueueBase::current();
  if (queue && queue != &MainQueue::shared()) {
    fatalError("dispatch_wait_until_idle was called from a block on a worker.");
  }
  WorkCount::shared().waitUntilZero();
}

}  // namespace zaffo
