// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/DispatchTimer.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/TimeSource.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/QueueTimer.h"
#include "platform/dispatch/TimerService.h"

namespace zaffo {

namespace {

constexpr int64_t kShortestPeriod = 1000;

/// now + delay, without overflow; an infinite delay stays infinite.
int64_t deadlineAfter(int64_t now, int64_t delay) {
  return delay > std::numeric_limits<int64_t>::max() - now ? std::numeric_limits<int64_t>::max()
                                                           : now + delay;
}

/// The main loop rings its own timers, so that no other thread wakes for them; replaced time rings
/// all of them in one order.
TimerService& serviceFor(const DispatchQueuePtr& queue) {
  const bool isMain = queue.get() == &MainQueue::shared() && !TimeSource::replacement();
  return isMain ? TimerService::ofMainQueue() : TimerService::shared();
}

}  // namespace

DispatchTimerPtr dispatch_timer_after(int64_t delay, const DispatchQueuePtr& queue,
                                      DispatchBlock block) {
  return dispatch_timer_at(deadlineAfter(TimeSource::now(), std::max<int64_t>(delay, 0)), queue,
                           std::move(block));
}

DispatchTimerPtr dispatch_timer_at(int64_t deadline, const DispatchQueuePtr& queue,
                                   DispatchBlock block) {
  TimerService& service = serviceFor(queue);
  const auto timer =
      std::make_shared<QueueTimer>(service, QueueTimer::kOnce, queue, std::move(block));
  if (deadline <= TimeSource::now()) {
    timer->fire();  // what is due already need not go through another thread
  } else {
    service.schedule(deadline, timer);
  }
  return timer;
}

DispatchTimerPtr dispatch_timer_every(int64_t interval, const DispatchQueuePtr& queue,
                                      DispatchBlock block) {
  const int64_t period = std::max(interval, kShortestPeriod);
  TimerService& service = serviceFor(queue);
  const auto timer = std::make_shared<QueueTimer>(service, period, queue, std::move(block));
  service.schedule(deadlineAfter(TimeSource::now(), period), timer);
  return timer;
}

}  // namespace zaffo
