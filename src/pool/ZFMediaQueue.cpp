// SPDX-License-Identifier: Apache-2.0
#include "pool/ZFMediaQueue.h"

namespace zaffo {

ZFMediaQueue::ZFMediaQueue() : kQueue_(dispatch_queue_create("com.zaffoapp.media")) {
  dispatch_queue_set_specific(kQueue_, &kQueueKey_, &kQueueKey_);
}

ZFMediaQueue& ZFMediaQueue::sharedInstance() {
  // Never destroyed: blocks may still be submitted while the process's statics go away.
  static auto* const instance = new ZFMediaQueue;
  return *instance;
}

const DispatchQueuePtr& ZFMediaQueue::queue() {
  return sharedInstance().kQueue_;
}

void ZFMediaQueue::assertOnQueue() {
  sharedInstance();
}

}  // namespace zaffo
