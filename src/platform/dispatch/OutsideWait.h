// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace zaffo {

/// While it lives, the calling thread waits for the outside world, or for a thread that does: a
/// worker of the shared pool leaves its place to another for as long, so that nobody else waits
/// with it. For what may take long and cannot be told to call back; one within another changes
/// nothing. Does nothing on other threads. Thread: any.
class OutsideWait {
 public:
  OutsideWait();
  ~OutsideWait();
  OutsideWait(const OutsideWait&) = delete;
  OutsideWait& operator=(const OutsideWait&) = delete;
};

}  // namespace zaffo
