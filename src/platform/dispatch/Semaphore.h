// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <semaphore.h>

#include <cerrno>
#include <cstdint>
#include <ctime>

namespace zaffo {

/// Counts pieces of work for threads waiting for some. Unlike a condition variable it never makes
/// the thread that announces work wait for those that will do it: the former may be the main
/// thread, and the latter may not get a processor for a while. Thread: any.
class Semaphore {
 public:
  Semaphore() { sem_init(&semaphore_, 0, 0); }
  ~Semaphore() { sem_destroy(&semaphore_); }
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

  void release() { sem_post(&semaphore_); }
  void acquire() {
    while (sem_wait(&semaphore_) != 0 && errno == EINTR) {
    }
  }
  [[nodiscard]] bool tryAcquire() { return sem_trywait(&semaphore_) == 0; }
  /// False when there was none until `deadline`, in nanoseconds of the machine's monotonic clock.
  [[nodiscard]] bool acquireUntil(int64_t deadline) {
    constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;
    const timespec until{static_cast<time_t>(deadline / kNanosecondsPerSecond),
                         static_cast<long>(deadline % kNanosecondsPerSecond)};
    while (sem_clockwait(&semaphore_, CLOCK_MONOTONIC, &until) != 0) {
      if (errno != EINTR) return false;
    }
    return true;
  }

 private:
  sem_t semaphore_;
};

}  // namespace zaffo
