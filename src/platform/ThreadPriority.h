#pragma once

#if defined(__linux__)
#include <sys/resource.h>
#endif

namespace zaffo {

/// Lets the calling thread give way to the application's own, above all to the main thread: a turn
/// of the main loop takes microseconds and must not wait for a decoder's time slice. Does nothing
/// where a thread has no priority of its own.
inline void lowerThreadPriority() {
#if defined(__linux__)
  constexpr int kNiceness = 5;
  setpriority(PRIO_PROCESS, 0, kNiceness);  // Linux: of the calling thread alone
#endif
}

}  // namespace zaffo
