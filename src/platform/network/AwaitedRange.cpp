#include "platform/network/AwaitedRange.h"

#include <utility>

namespace zaffo::network {

void AwaitedRange::tell() {
  std::function<void()> handler;
  {
    MutexLock lock(handlerMutex_);
    handler.swap(handler_);
    if (!handler) return;
    caller_ = std::this_thread::get_id();
  }
  handler();
  handler = nullptr;  // what it holds goes before a cancel() returns
  MutexLock lock(handlerMutex_);
  caller_ = {};
  returned_.notify_all();
}

void AwaitedRange::cancel() {
  std::function<void()> dropped;
  MutexLock lock(handlerMutex_);
  dropped.swap(handler_);
  const auto here = std::this_thread::get_id();
  while (caller_ != std::thread::id() && caller_ != here) returned_.wait(handlerMutex_);
}

}  // namespace zaffo::network
