// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>

#include "platform/Mutex.h"

namespace zaffo {

/// What somebody waits for who has to answer before returning: a worker leaves its place to another
/// meanwhile (see OutsideWait). Thread: any; wait() one at a time.
class OutsideSignal {
 public:
  void announce();
  /// Until it was announced once more since the last wait.
  void wait();

 private:
  [[nodiscard]] bool take();

  Mutex announcedMutex_;
  std::condition_variable_any changed_;
  bool isAnnounced_ ZAFFO_GUARDED_BY(announcedMutex_) = false;
};

}  // namespace zaffo
