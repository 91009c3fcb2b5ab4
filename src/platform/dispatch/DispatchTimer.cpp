#include "platform/dispatch/DispatchTimer.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/TimeSource.h"
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

}  // namespace

DispatchTimerPtr dispatch_timer_after(int64_t delay, const DispatchQueuePtr& queue,
                                      DispatchBlock block) {
  return dispatch_timer_at(deadlineAfter(TimeSource::now(), std::max<int64_t>(delay, 0)), queue,
                           std::move(block));
}

DispatchTimerPtr dispatch_timer_at(int64_t deadline, const DispatchQueuePtr& queue,
                                   DispatchBlock block) {
  const auto timer = std::make_shared<QueueTimer>(QueueTimer::kOnce, queue, std::move(block));
  if (deadline <= TimeSource::now()) {
    timer->fire();  // what is due already need not go through another thread
  } else {
    TimerService::shared().schedule(deadline, timer);
  }
  return timer;
}

DispatchTimerPtr dispatch_timer_every(int64_t interval, const DispatchQueuePtr& queue,
                                      DispatchBlock block) {
  const int64_t period = std::max(interval, kShortestPeriod);
  const auto timer = std::make_shared<QueueTimer>(period, queue, std::move(block));
  TimerService::shared().schedule(deadlineAfter(TimeSource::now(), period), timer);
  return timer;
}

}  // namespace zaffo
