// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>

#include "platform/dispatch/MainLoop.h"

namespace zaffo {

/// Runs turns of the main loop in real time until `condition` holds, and says whether it came to
/// hold within `timeout` nanoseconds. The condition is looked at after each turn and at least every
/// other millisecond, so it may also depend on what other threads do. Thread: main.
inline bool runMainLoopUntil(const std::function<bool()>& condition, int64_t timeout) {
  constexpr int64_t kLongestTurn = 2'000'000;
  const auto end = std::chrono::steady_clock::now() + std::chrono::nanoseconds(timeout);
  while (!condition()) {
    const int64_t left = std::chrono::nanoseconds(end - std::chrono::steady_clock::now()).count();
    if (left <= 0) return false;
    MainLoop::runTurn(std::min(left, kLongestTurn));
  }
  return true;
}

}  // namespace zaffo
