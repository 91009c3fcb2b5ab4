// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <memory>

#include "doubles/MainLoopUntil.h"
#include "platform/dispatch/DispatchQueue.h"

namespace zaffo {

/// How long a block that is put on `queue` waits for its turn: the shortest of five times, in
/// milliseconds, so that it tells what stands in the way and not what else the machine does; an
/// infinity when one does not run within five seconds. Thread: main.
inline double latencyOf(const DispatchQueuePtr& queue) {
  using Clock = std::chrono::steady_clock;
  double shortest = std::numeric_limits<double>::infinity();
  for (int i = 0; i < 5; ++i) {
    const auto ran = std::make_shared<std::atomic<Clock::rep>>(0);
    const auto put = Clock::now();
    queue->async([ran] { *ran = Clock::now().time_since_epoch().count(); });
    if (!runMainLoopUntil([&ran] { return *ran != 0; }, 5'000'000'000)) {
      return std::numeric_limits<double>::infinity();
    }
    const auto took = Clock::duration(*ran) - put.time_since_epoch();
    shortest = std::min(shortest, std::chrono::duration<double, std::milli>(took).count());
  }
  return shortest;
}

}  // namespace zaffo
