// SPDX-License-Identifier: Apache-2.0
#pragma once

#if defined(__linux__)
#include <sched.h>
#include <sys/resource.h>
#endif

namespace zaffo {

/// Makes the calling thread give way to the application's threads, above all the main thread: a
/// turn of the main loop takes microseconds and must not wait for a decoder's time slice. Does
/// nothing where a thread has no priority of its own.
inline void lowerThreadPriority() {
#if defined(__linux__)
  // A batch thread that wakes up does not preempt one that is running.
  const sched_param none{};
  sched_setscheduler(0, SCHED_BATCH, &none);
  constexpr int kNiceness = 5;
  setpriority(PRIO_PROCESS, 0, kNiceness);  // Linux: of the calling thread alone
#endif
}

}  // namespace zaffo
