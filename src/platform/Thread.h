// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pthread.h>

#include <array>
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

/// Names a thread for debuggers and `top -H`, with at most 15 characters.
inline void setThreadName(pthread_t thread, const std::string& name) {
  pthread_setname_np(thread, name.substr(0, 15).c_str());
}

/// While it lives, threads that others start on the calling thread, a library that we call, are
/// named so, and get none of the process's signals. They also inherit its priority: what a worker
/// has others do gives way to the application as it does itself.
class ForeignThreads {
 public:
  explicit ForeignThreads(const std::string& name) {
    pthread_getname_np(pthread_self(), former_.data(), former_.size());
    setThreadName(pthread_self(), name);
  }
  ~ForeignThreads() { setThreadName(pthread_self(), former_.data()); }
  ForeignThreads(const ForeignThreads&) = delete;
  ForeignThreads& operator=(const ForeignThreads&) = delete;

 private:
  const SignalsBlocked blocked_;
  std::array<char, 16> former_{};
};

/// Starts one of the library's own threads, without the process's signals, which are for the
/// application to receive, and with a name. Throws std::system_error when the system has no more
/// threads.
template <class Body>
[[nodiscard]] std::thread startThread(const std::string& name, Body body) {
  const SignalsBlocked blocked;
  std::thread thread([name, run = std::move(body)]() mutable {
    setThreadName(pthread_self(), name);
    run();
  });
  setThreadName(thread.native_handle(), name);  // for who looks before it has run
  return thread;
}

}  // namespace zaffo
