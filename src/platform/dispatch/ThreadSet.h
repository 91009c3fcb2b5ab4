// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <functional>
#include <string>

#include "platform/Mutex.h"

namespace zaffo {

/// Threads that are not joined, because one of them may be stuck in a read when the process ends;
/// stopping them waits for as long as is reasonable. Never destroyed. Thread: any.
class ThreadSet {
 public:
  ThreadSet();

  /// Starts a thread under a name of at most 15 characters. False when the system has no more.
  [[nodiscard]] bool start(const std::string& name, std::function<void()> body);

  [[nodiscard]] int size() const;

  /// Whether this is the copy in a forked child: its threads are the parent's, and whatever they
  /// held at the fork, including locks, stays held.
  [[nodiscard]] bool isOfParent() const;

  /// Waits until every thread has ended, but no longer than a process may take to exit. Returns at
  /// once when called on one of these threads.
  void waitAtExit();

 private:
  const pid_t process_;
  mutable Mutex sizeMutex_;
  std::condition_variable_any sizeChanged_;
  int size_ ZAFFO_GUARDED_BY(sizeMutex_) = 0;
};

}  // namespace zaffo
