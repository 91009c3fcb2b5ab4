// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <functional>
#include <thread>
#include <utility>

#include "platform/Mutex.h"

namespace zaffo::media {

/// The handler of a ByteSource::Want: called once at most, and not any more, and gone, once
/// cancel() has returned. Thread: any.
class WantHandler {
 public:
  explicit WantHandler(std::function<void()> handler) : handler_(std::move(handler)) {}

  void call() {
    std::function<void()> handler;
    {
      MutexLock lock(handlerMutex_);
      handler = std::exchange(handler_, nullptr);
      if (!handler) return;
      caller_ = std::this_thread::get_id();
    }
    handler();
    handler = nullptr;  // what it holds goes before a cancel() returns
    MutexLock lock(handlerMutex_);
    caller_ = {};
    returned_.notify_all();
  }

  /// Waits for a call that is under way, unless it is made from there.
  void cancel() {
    std::function<void()> dropped;
    MutexLock lock(handlerMutex_);
    dropped.swap(handler_);
    while (caller_ != std::thread::id() && caller_ != std::this_thread::get_id()) {
      returned_.wait(handlerMutex_);
    }
  }

  [[nodiscard]] bool isPending() {
    MutexLock lock(handlerMutex_);
    return handler_ != nullptr;
  }

 private:
  Mutex handlerMutex_;
  std::condition_variable_any returned_;
  std::function<void()> handler_ ZAFFO_GUARDED_BY(handlerMutex_);
  std::thread::id caller_ ZAFFO_GUARDED_BY(handlerMutex_);
};

}  // namespace zaffo::media
