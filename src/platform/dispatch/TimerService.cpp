#include "platform/dispatch/TimerService.h"

#include <chrono>
#include <utility>

#include "platform/FatalError.h"
#include "platform/ReplacedTime.h"
#include "platform/TimeSource.h"

namespace zaffo {

namespace {

/// Fewer cancelled timers than this are not worth a sweep.
constexpr size_t kFewCancelled = 64;

/// The first deadline after `now` on the grid of `period` that `deadline` lies on.
int64_t nextOnGrid(int64_t deadline, int64_t period, int64_t now) {
  return deadline + period * (1 + (now - deadline) / period);
}

}  // namespace

/// Ends the thread before the static objects that timers' queues may use are destroyed.
struct TimerService::ExitGuard {
  ~ExitGuard() {
    if (!shared().thread_.isOfParent()) shared().stop();
  }
};

TimerService& TimerService::shared() {
  static auto* const service = new TimerService;
  static const ExitGuard guard;
  return *service;
}

TimerService::TimerService()
    : context_(1), keepRunning_(context_.get_executor()), alarm_(context_) {}

void TimerService::schedule(int64_t deadline, std::shared_ptr<QueueTimer> timer) {
  Heap stale;
  MutexLock lock(heapMutex_);
  stale = takeStaleWhileLocked();
  heap_.push(deadline, std::move(timer));
  armWhileLocked();
}

void TimerService::noteCancelled() {
  std::vector<Heap::Item> swept;
  MutexLock lock(heapMutex_);
  if (++cancelledCount_ < kFewCancelled || cancelledCount_ * 2 < heap_.size()) return;
  cancelledCount_ = 0;
  swept = heap_.sweep([](const QueueTimer& timer) { return timer.isCancelled(); });
}

/// The timers of an earlier time source, to be released with no lock held.
TimerService::Heap TimerService::takeStaleWhileLocked() {
  const uint64_t generation = TimeSource::generation();
  if (std::exchange(generation_, generation) == generation) return {};
  armedDeadline_ = kNotArmed;
  return std::exchange(heap_, {});
}

/// Makes sure the alarm rings at the earliest deadline. An alarm that rings too early because its
/// timer was cancelled costs less than resetting it each time.
void TimerService::armWhileLocked() {
  const auto earliest = heap_.earliest();
  if (!earliest || *earliest >= armedDeadline_) return;
  armedDeadline_ = *earliest;
  if (setReplacementAlarm(*earliest, [this] { alarmRang(); })) return;
  startThreadWhileLocked();
  const std::chrono::nanoseconds sinceOrigin(*earliest);
  alarm_.expires_at(asio::steady_timer::time_point(sinceOrigin));
  alarm_.async_wait([this](const asio::error_code& error) {
    if (!error) alarmRang();
  });
}

void TimerService::startThreadWhileLocked() {
  if (std::exchange(threadStarted_, true)) return;
  if (!thread_.start("zaffo-timers", [this] { context_.run(); })) {
    fatalError("No thread could be started for the timers.");
  }
}

void TimerService::alarmRang() {
  while (const auto timer = takeDue()) timer->fire();
}

/// The next timer whose deadline has passed; null, with the alarm set, when there is none.
std::shared_ptr<QueueTimer> TimerService::takeDue() {
  Heap stale;
  MutexLock lock(heapMutex_);
  stale = takeStaleWhileLocked();
  armedDeadline_ = kNotArmed;
  const int64_t now = TimeSource::now();
  while (heap_.earliest() && *heap_.earliest() <= now) {
    Heap::Item item = heap_.pop();
    if (item.timer->isCancelled()) {
      if (cancelledCount_ > 0) --cancelledCount_;
      continue;
    }
    if (item.timer->period() != QueueTimer::kOnce) {
      heap_.push(nextOnGrid(item.deadline, item.timer->period(), now), item.timer);
    }
    return std::move(item.timer);
  }
  armWhileLocked();
  return nullptr;
}

void TimerService::stop() {
  context_.stop();
  thread_.waitAtExit();
}

}  // namespace zaffo
