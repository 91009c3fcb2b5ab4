// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>

#include "platform/Export.h"

namespace zaffo {

/// The one source of time under the host clock and the queues' timers: the monotonic clock of the
/// machine, or a replacement that a test advances by hand. Thread: any.
class ZAFFO_EXPORT TimeSource {
 public:
  virtual ~TimeSource() = default;

  /// Nanoseconds since an arbitrary origin; never goes back.
  [[nodiscard]] virtual int64_t nanoseconds() const = 0;

  /// Asks a replacement to call `ring` once when nanoseconds() reaches `deadline`. One alarm at a
  /// time: a later call replaces the earlier one; an empty `ring` clears it. `ring` is never called
  /// inside this call, and never while a lock of the replacement is held.
  virtual void setAlarm(int64_t deadline, std::function<void()> ring) = 0;

  /// The current time of the source in force, in nanoseconds.
  [[nodiscard]] static int64_t now();

  /// The replacement in force; null while the machine's monotonic clock is used.
  [[nodiscard]] static TimeSource* replacement();

  /// Puts `source` in force, or the machine's clock again with null. The caller keeps `source`
  /// alive while it is in force. Timers made on the previous source never fire again.
  static void replace(TimeSource* source);

  /// Counts the calls of replace(), to identify what belongs to an earlier source.
  [[nodiscard]] static uint64_t generation();
};

}  // namespace zaffo
