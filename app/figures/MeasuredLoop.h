// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

#include "figures/TurnTimes.h"

namespace zaffo::feed {

/// Runs the main loop a turn at a time and reports how long each turn kept the main thread busy.
/// Ends on quit(), SIGINT, SIGTERM and SIGHUP. Thread: main.
class MeasuredLoop {
 public:
  /// Takes over those signals for this thread and those it starts; create it first.
  MeasuredLoop();
  MeasuredLoop(const MeasuredLoop&) = delete;
  MeasuredLoop& operator=(const MeasuredLoop&) = delete;

  /// Waits for work and runs it until quit(); `turnEnded` receives the times of each turn.
  void run(const std::function<void(const TurnTimes&)>& turnEnded);
  void quit() { quit_ = true; }

 private:
  [[nodiscard]] static bool waitForWork();

  bool quit_ = false;
};

}  // namespace zaffo::feed
