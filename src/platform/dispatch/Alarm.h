// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace zaffo {

/// A descriptor that is readable from a point of the machine's monotonic clock on. Whoever sleeps
/// on it is not woken by its being set to another one. Thread: one at a time, but for descriptor().
class Alarm {
 public:
  Alarm();
  ~Alarm();
  Alarm(const Alarm&) = delete;
  Alarm& operator=(const Alarm&) = delete;

  /// Readable from `deadline` on, in nanoseconds, and not before.
  void set(int64_t deadline);
  /// Not readable until it is set again.
  void clear();

  /// Owned by the alarm; not to be read.
  [[nodiscard]] int descriptor() const { return descriptor_; }

 private:
  void setTo(int64_t nanoseconds);

  const int descriptor_;
};

}  // namespace zaffo
