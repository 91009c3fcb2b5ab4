#pragma once

#include <cstdint>

#include "platform/Export.h"

namespace zaffo {

/// Runs the blocks of the main queue: by itself, or a turn at a time inside a foreign loop, which
/// polls fileDescriptor() and calls runTurn() when it is readable. Timers on the main queue need
/// nothing more: they too make the descriptor readable. Thread: main, except quit().
class ZAFFO_EXPORT MainLoop {
 public:
  /// Makes the calling thread the main thread and runs turns until quit().
  static void run();

  /// Runs the blocks that are queued now, not those that they queue in turn, and returns how many
  /// ran; never waits. May be called from a block.
  static int runTurn();

  /// Waits at most `timeout` nanoseconds of the machine's clock (for ever when negative) for work,
  /// then runs one turn. May return before with nothing run, when the loop was woken by quit().
  static int runTurn(int64_t timeout);

  /// Ends run() after the present block; what is queued behind it stays queued. Ends the innermost
  /// run() when they are nested, and the next one when none is under way. Thread: any.
  static void quit();

  /// Readable (poll, epoll, GLib, Qt, libuv) whenever a turn has something to run. Owned by the
  /// loop; do not read or close it.
  [[nodiscard]] static int fileDescriptor();
};

}  // namespace zaffo
