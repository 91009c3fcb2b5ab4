// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <mutex>

// Clang checks these at compile time (-Wthread-safety); elsewhere they vanish.
#if defined(__clang__)
#define ZAFFO_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ZAFFO_THREAD_ANNOTATION(x)
#endif
#define ZAFFO_CAPABILITY(x) ZAFFO_THREAD_ANNOTATION(capability(x))
#define ZAFFO_SCOPED_CAPABILITY ZAFFO_THREAD_ANNOTATION(scoped_lockable)
#define ZAFFO_GUARDED_BY(x) ZAFFO_THREAD_ANNOTATION(guarded_by(x))
#define ZAFFO_REQUIRES(...) ZAFFO_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ZAFFO_EXCLUDES(...) ZAFFO_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ZAFFO_ACQUIRE(...) ZAFFO_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ZAFFO_RELEASE(...) ZAFFO_THREAD_ANNOTATION(release_capability(__VA_ARGS__))

namespace zaffo {

/// A std::mutex that clang can reason about. Name each one after what it guards, never hold one
/// during a callback, and let the names of helpers that need it held end in `WhileLocked`.
class ZAFFO_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() ZAFFO_ACQUIRE() { mutex_.lock(); }
  void unlock() ZAFFO_RELEASE() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

/// Holds a Mutex for a scope. Works with std::condition_variable_any through lock() and unlock().
class ZAFFO_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ZAFFO_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() ZAFFO_RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace zaffo
