// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/Alarm.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

#include "platform/FatalError.h"

namespace zaffo {

namespace {

int createTimerDescriptor() {
  const int descriptor = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
  if (descriptor < 0) fatalError("No timer descriptor could be created for the queues' timers.");
  return descriptor;
}

}  // namespace

Alarm::Alarm() : descriptor_(createTimerDescriptor()) {}

Alarm::~Alarm() {
  close(descriptor_);
}

void Alarm::set(int64_t deadline) {
  setTo(std::max<int64_t>(deadline, 1));  // zero would clear it
}

void Alarm::clear() {
  setTo(0);
}

/// Also makes it unreadable until then.
void Alarm::setTo(int64_t nanoseconds) {
  constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;
  itimerspec spec{};
  spec.it_value.tv_sec = static_cast<time_t>(nanoseconds / kNanosecondsPerSecond);
  spec.it_value.tv_nsec = static_cast<long>(nanoseconds % kNanosecondsPerSecond);
  timerfd_settime(descriptor_, TFD_TIMER_ABSTIME, &spec, nullptr);
}

}  // namespace zaffo
