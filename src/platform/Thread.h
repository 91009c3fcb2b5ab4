#pragma once

#include <pthread.h>

#include <csignal>
#include <string>
#include <thread>
#include <utility>

namespace zaffo {

/// While it lives, blocks the process's signals in the calling thread and in threads started
/// meanwhile, which inherit that. Signals that a thread causes itself, above all an invalid access,
/// still reach the application's handlers, and so do a profiler's.
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

/// Starts one of the library's own threads, without the process's signals, which are for the
/// application to receive, and with a name of at most 15 characters for debuggers and `top -H`.
/// Throws std::system_error when the system has no more threads.
template <class Body>
[[nodiscard]] std::thread startThread(const std::string& name, Body body) {
  const SignalsBlocked blocked;
  std::thread thread(std::move(body));
  pthread_setname_np(thread.native_handle(), name.substr(0, 15).c_str());
  return thread;
}

}  // namespace zaffo
