// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/WorkCount.h"

namespace zaffo {

WorkCount& WorkCount::shared() {
  static auto* const count = new WorkCount;  // workers use it until the very end of the process
  return *count;
}

void WorkCount::waitUntilZero() const {
  while (const int64_t count = count_.load()) {
    if (givenUp_) return;
    count_.wait(count);
  }
}

void WorkCount::giveUp() {
  givenUp_ = true;
  begin();  // changes the value, which is what waiters watch
  count_.notify_all();
}

}  // namespace zaffo
