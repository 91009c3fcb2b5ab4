#pragma once

#include "platform/Export.h"

namespace zaffo {

/// The main-thread test. The main thread is the process's first thread until another one adopts
/// the role (dispatch/MainLoop.h). Thread: any.
class ZAFFO_EXPORT NSThread {
 public:
  [[nodiscard]] static bool isMainThread();

  /// Makes the calling thread the main thread, for programs whose loop runs on another one.
  static void adoptMainThread();
};

/// In debug builds, a fatal error when the caller is not on the main thread.
#ifdef NDEBUG
inline void assertMainThread() {}
#else
ZAFFO_EXPORT void assertMainThread();
#endif

}  // namespace zaffo
