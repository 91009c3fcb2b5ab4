#pragma once

#include "platform/Export.h"

namespace zaffo {

/// The main-thread test. The main thread is the process's first thread until another one adopts
/// the role (dispatch/MainLoop.h). Thread: any.
class ZAFFO_EXPORT NSThread {
 public:
  [[nodiscard]] static bool isMainThread();

  /// Makes the calling thread the main thread, for programs whose loop runs on another one. The
  /// thread that had the role before loses it.
  static void adoptMainThread();
};

/// A fatal error when the caller is not on the main thread, in debug builds of the library; nothing
/// otherwise. Always exported, so that a debug application runs on a release library.
ZAFFO_EXPORT void assertMainThread();

}  // namespace zaffo
