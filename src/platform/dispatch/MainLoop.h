#pragma once

#include <cstdint>

#include "platform/Export.h"

namespace zaffo {

/// Runs the blocks of the main queue: by itself, or a turn at a time inside a foreign loop, which
/// polls fileDescriptor() and calls runTurn() when it is readable. Thread: main, except quit().
class ZAFFO_EXPORT MainLoop {
 public:
  /// Makes the calling thread the main thread and runs turns until quit().
  static void run();

  /// Runs what is queued now and returns the number of blocks run; never waits.
  static int runTurn();

  /// Waits at most `timeout` nanoseconds (for ever when negative) for work, then runs one turn.
  static int runTurn(int64_t timeout);

  /// Ends run() after the present block. Thread: any.
  static void quit();

  /// Readable (poll, epoll, GLib, Qt, libuv) whenever a turn has something to run. Owned by the
  /// loop; do not read or close it.
  [[nodiscard]] static int fileDescriptor();
};

}  // namespace zaffo
