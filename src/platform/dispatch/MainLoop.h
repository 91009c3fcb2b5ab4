// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "platform/Export.h"

namespace zaffo {

/// Runs the blocks of the main queue: on its own, or a turn at a time inside a foreign loop, which
/// polls fileDescriptor() and calls runTurn() when it is readable. Timers on the main queue need
/// nothing else: they too make the descriptor readable. Thread: main, except quit().
class ZAFFO_EXPORT MainLoop {
 public:
  /// Makes the calling thread the main thread and runs turns until quit().
  static void run();

  /// Runs the blocks that are queued now, but not those that they queue, and returns how many ran;
  /// never waits. May be called from a block.
  static int runTurn();

  /// Waits for work at most `timeout` nanoseconds of the machine's clock (forever when negative),
  /// then runs one turn. May return earlier without running anything when quit() wakes the loop.
  static int runTurn(int64_t timeout);

  /// Ends run() after the current block; what is queued behind it stays queued. Ends the innermost
  /// run() when they are nested, and the next one when none is running. Thread: any.
  static void quit();

  /// Readable (poll, epoll, GLib, Qt, libuv) whenever a turn has something to run. Owned by the
  /// loop; do not read or close it.
  [[nodiscard]] static int fileDescriptor();
};

}  // namespace zaffo
