// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/OutsideWait.h"

#include "platform/dispatch/BoundedExecutor.h"
#include "platform/dispatch/WorkerPool.h"

namespace zaffo {

namespace {
thread_local int depth = 0;
}  // namespace

OutsideWait::OutsideWait() {
  if (depth++ > 0 || !WorkerPool::isWorker()) return;
  WorkerPool::shared().beginWait();
  BoundedExecutor::beginWait();
}

OutsideWait::~OutsideWait() {
  if (--depth > 0 || !WorkerPool::isWorker()) return;
  BoundedExecutor::endWait();
  WorkerPool::shared().endWait();
}

}  // namespace zaffo
