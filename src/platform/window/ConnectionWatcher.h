// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace zaffo::window {

/// Sleeps until a file descriptor is readable, says so once, and sleeps on until armed again: how
/// the display's events reach the main queue without anybody asking at intervals. Thread: main.
class ConnectionWatcher {
 public:
  /// Armed from the start. `readable` runs on the watcher's own thread.
  ConnectionWatcher(int fileDescriptor, std::function<void()> readable);
  /// Returns at once or, at most, when a call of `readable` under way returns.
  ~ConnectionWatcher();
  ConnectionWatcher(const ConnectionWatcher&) = delete;
  ConnectionWatcher& operator=(const ConnectionWatcher&) = delete;

  /// Watches again, after what was readable has been read.
  void arm();

 private:
  void watch(int fileDescriptor, const std::function<void()>& readable);
  void wake() const;

  std::atomic<bool> armed_{true};
  std::atomic<bool> stopped_{false};
  int wakeDescriptor_;
  std::thread thread_;
};

}  // namespace zaffo::window
