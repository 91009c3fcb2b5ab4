#pragma once

#include <semaphore.h>

#include <cerrno>

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

 private:
  sem_t semaphore_;
};

}  // namespace zaffo
