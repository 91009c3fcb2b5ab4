// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/MediaQueues.h"

#include <algorithm>
#include <utility>

#include "platform/dispatch/BoundedExecutor.h"
#include "platform/dispatch/WorkerPool.h"

namespace zaffo {

namespace {

/// The pool's workers but one: they decode at once.
Executor& pictures() {
  static auto* const executor = new BoundedExecutor(
      WorkerPool::shared().executor(DISPATCH_QUEUE_PRIORITY_LOW), WorkerPool::workerCount() - 1);
  return *executor;
}

/// Their decoders have threads of their own, which go on while another one's turn is.
Executor& heavyPictures() {
  static auto* const executor =
      new BoundedExecutor(pictures(), std::max(1U, WorkerPool::workerCount() - 2));
  return *executor;
}

}  // namespace

std::shared_ptr<SerialQueue> makePictureQueue(std::string label) {
  return std::make_shared<SerialQueue>(std::move(label), pictures());
}

void setPictureLoad(SerialQueue& queue, PictureLoad load) {
  queue.moveTo(load == PictureLoad::Heavy ? heavyPictures() : pictures());
}

DispatchQueuePtr makeSoundQueue(std::string label) {
  return std::make_shared<SerialQueue>(std::move(label),
                                       WorkerPool::shared().executor(DISPATCH_QUEUE_PRIORITY_HIGH));
}

}  // namespace zaffo
