// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <latch>
#include <utility>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/WorkerPool.h"

namespace zaffo {

/// Keeps every worker of the shared pool busy until released.
class BusyPool {
 public:
  BusyPool() : workers_(WorkerPool::workerCount()), occupied_(workers_) {
    for (unsigned i = 0; i < workers_; ++i) {
      dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH), [this] {
        occupied_.count_down();
        released_.wait();
      });
    }
    occupied_.wait();
  }
  ~BusyPool() {
    release();
    dispatch_wait_until_idle();
  }
  void release() {
    if (!std::exchange(isReleased_, true)) released_.count_down();
  }
  [[nodiscard]] unsigned workers() const { return workers_; }

 private:
  const unsigned workers_;
  std::latch occupied_;
  std::latch released_{1};
  bool isReleased_ = false;
};

}  // namespace zaffo
