#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <thread>

#include "platform/Mutex.h"

namespace zaffo::network {

/// A range of bytes that somebody waits for, and whom to tell. Thread: any.
class AwaitedRange {
 public:
  AwaitedRange(int64_t from, int64_t until, std::function<void()> handler)
      : begin(from), end(until), handler_(std::move(handler)) {}

  const int64_t begin, end;

  /// Calls the handler, unless it was told already or nobody waits any more.
  void tell();
  /// Nobody waits any more. Returns when the handler does not run, save inside of it.
  void cancel();

 private:
  Mutex handlerMutex_;
  std::condition_variable_any returned_;
  std::function<void()> handler_ ZAFFO_GUARDED_BY(handlerMutex_);
  std::thread::id caller_ ZAFFO_GUARDED_BY(handlerMutex_);
};

}  // namespace zaffo::network
