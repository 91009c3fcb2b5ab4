#pragma once

#include <pthread.h>

#include <csignal>
#include <string>
#include <thread>
#include <utility>

namespace zaffo {

/// Keeps the process's signals away from the calling thread, and from threads that are started
/// meanwhile (they inherit it), until it goes. Those that a thread brings upon itself, an invalid
/// access above all, still reach the application's handlers, and so do a profiler's.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t blocked;
    sigfillset(&blocked);
    for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT, SIGPROF}) {
      sigdelset(&blocked, own);
    }
    pthread_sigmask(SIG_SETMASK, &blocked, &former_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &former_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t former_{};
};

/// Names the calling thread for debuggers and `top -H`; 15 characters are kept. Does nothing where
/// the system has no such names.
inline void setThreadName([[maybe_unused]] const std::string& name) {
#if defined(__linux__)
  pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
#endif
}

/// Starts a thread of the library's own: under a name, and without the process's signals, which are
/// the application's to receive. Throws std::system_error when the system has no more threads.
template <class Body>
[[nodiscard]] std::thread startThread(std::string name, Body body) {
  const SignalsBlocked blocked;
  return std::thread([name = std::move(name), run = std::move(body)]() mutable {
    setThreadName(name);
    run();
  });
}

}  // namespace zaffo
