// SPDX-License-Identifier: Apache-2.0
#include "platform/window/ConnectionWatcher.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <utility>

#include "platform/FatalError.h"
#include "platform/Thread.h"

namespace zaffo::window {

ConnectionWatcher::ConnectionWatcher(int fileDescriptor, std::function<void()> readable)
    : wakeDescriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (wakeDescriptor_ < 0) fatalError("Window: no file descriptor is left for its events.");
  thread_ = startThread("zaffo-events", [this, fileDescriptor, readable = std::move(readable)] {
    watch(fileDescriptor, readable);
  });
}

ConnectionWatcher::~ConnectionWatcher() {
  stopped_ = true;
  wake();
  thread_.join();
  close(wakeDescriptor_);
}

void ConnectionWatcher::arm() {
  armed_ = true;
  wake();
}

void ConnectionWatcher::wake() const {
  const uint64_t one = 1;
  // It fails only when the descriptor is readable as it is.
  [[maybe_unused]] const auto written = write(wakeDescriptor_, &one, sizeof one);
}

void ConnectionWatcher::watch(int fileDescriptor, const std::function<void()>& readable) {
  while (!stopped_) {
    pollfd polled[2] = {{wakeDescriptor_, POLLIN, 0}, {fileDescriptor, POLLIN, 0}};
    if (poll(polled, armed_ ? 2 : 1, -1) < 0) continue;  // interrupted by a signal
    uint64_t wakes = 0;
    if (polled[0].revents && read(wakeDescriptor_, &wakes, sizeof wakes) < 0) continue;
    if (!armed_ || !polled[1].revents) continue;
    armed_ = false;
    readable();
  }
}

}  // namespace zaffo::window
