// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Export.h"

namespace zaffo {

/// Identifies the main thread, which is the process's first thread until another one adopts the
/// role (dispatch/MainLoop.h). Thread: any.
class ZAFFO_EXPORT NSThread {
 public:
  [[nodiscard]] static bool isMainThread();

  /// Makes the calling thread the main thread, for programs whose loop runs on another one. The
  /// thread that had the role before loses it.
  static void adoptMainThread();
};

/// In debug builds of the library, a fatal error when the caller is not on the main thread;
/// otherwise does nothing. Always exported, so that a debug application runs on a release library.
ZAFFO_EXPORT void assertMainThread();

}  // namespace zaffo
