#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <functional>
#include <string>

#include "platform/Mutex.h"

namespace zaffo {

/// Threads nobody joins, because one of them may be stuck in a read when the process ends; whoever
/// stops them waits for as long as is reasonable. Never destroyed. Thread: any.
class ThreadSet {
 public:
  ThreadSet();

  /// Starts a thread under a name of at most 15 characters. False when the system has no more.
  [[nodiscard]] bool start(const std::string& name, std::function<void()> body);

  [[nodiscard]] int size() const;

  /// Whether this is a copy that a forked child has: its threads are the parent's, and what they
  /// held when it forked, locks too, stays held.
  [[nodiscard]] bool isOfParent() const;

  /// Waits until every thread has ended, at most as long as a process may take to exit. Returns at
  /// once on one of these threads.
  void waitAtExit();

 private:
  const pid_t process_;
  mutable Mutex sizeMutex_;
  std::condition_variable_any sizeChanged_;
  int size_ ZAFFO_GUARDED_BY(sizeMutex_) = 0;
};

}  // namespace zaffo
