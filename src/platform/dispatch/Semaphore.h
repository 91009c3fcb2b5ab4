#pragma once

#include <semaphore.h>

#include <cerrno>

namespace zaffo {

/// Counts pieces of work for threads that wait for some. Unlike a condition variable it never keeps
/// whoever announces work waiting for those who are to do it: that would be the main thread, and
/// they may not get a processor for a while. Thread: any.
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
