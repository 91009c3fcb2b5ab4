// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

#include "platform/Mutex.h"
#include "platform/dispatch/Asio.h"
#include "platform/dispatch/ThreadSet.h"

namespace zaffo::network {

/// The one thread of the process for all of the network, which waits in Asio. It starts with the
/// first thing that is to be done, and must never wait for anything else. Never destroyed.
/// Thread: any.
class NetworkLoop {
 public:
  [[nodiscard]] static NetworkLoop& shared();

  /// Runs `block` on the thread, after what was posted before, and never inside this call.
  void post(std::function<void()> block);

  [[nodiscard]] bool isOnThread() const;
  [[nodiscard]] asio::io_context& context() { return context_; }

 private:
  struct ExitGuard;

  NetworkLoop();
  ~NetworkLoop() = delete;
  void startThread();
  void stop();

  asio::io_context context_;
  asio::executor_work_guard<asio::io_context::executor_type> keepRunning_;
  ThreadSet thread_;
  Mutex startMutex_;
  bool started_ ZAFFO_GUARDED_BY(startMutex_) = false;
};

}  // namespace zaffo::network
