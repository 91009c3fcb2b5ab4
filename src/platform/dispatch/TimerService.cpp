// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/TimerService.h"

#include <algorithm>
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
  static auto* const service = new TimerService(RungBy::Thread);
  static const ExitGuard guard;
  return *service;
}

TimerService& TimerService::ofMainQueue() {
  static auto* const service = new TimerService(RungBy::MainLoop);
  return *service;
}

TimerService::TimerService(RungBy rungBy)
    : rungBy_(rungBy), context_(1), keepRunning_(context_.get_executor()), alarmRings_(context_) {}

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
  disarmWhileLocked();
  return std::exchange(heap_, {});
}

/// Makes sure that somebody rings at the earliest deadline. An alarm that rings too early because
/// its timer was cancelled costs less than resetting it each time.
void TimerService::armWhileLocked() {
  const auto earliest = heap_.earliest();
  if (!earliest || *earliest >= armedDeadline_) return;
  if (setReplacementAlarm(*earliest, [this] { ringDue(); })) {
    armedDeadline_ = *earliest;
    return;
  }
  if (isKeptWhileLocked(*earliest)) return;
  armedDeadline_ = *earliest;
  alarm_.set(*earliest);
  if (rungBy_ == RungBy::Thread) startThreadWhileLocked();
}

void TimerService::disarmWhileLocked() {
  if (std::exchange(armedDeadline_, kNever) != kNever) alarm_.clear();
}

bool TimerService::isKeptWhileLocked(int64_t deadline) const {
  return std::ranges::any_of(kept_, [deadline](int64_t kept) { return kept <= deadline; });
}

void TimerService::startThreadWhileLocked() {
  if (std::exchange(threadStarted_, true)) return;
  alarmRings_.assign(alarm_.descriptor());
  waitForAlarm();
  if (!thread_.start("zaffo-timers", [this] { context_.run(); })) {
    fatalError("No thread could be started for the timers.");
  }
}

void TimerService::waitForAlarm() {
  alarmRings_.async_wait(asio::posix::stream_descriptor::wait_read,
                         [this](const asio::error_code& error) {
                           if (error) return;
                           alarmRang();
                           waitForAlarm();
                         });
}

/// Replaced time rings by itself, and counts on nobody else doing so.
void TimerService::alarmRang() {
  if (!TimeSource::replacement()) return ringDue();
  MutexLock lock(heapMutex_);
  alarm_.clear();
}

/// Each timer once at most: who rings may have the work to do that they ask for.
void TimerService::ringDue() {
  const uint64_t generation = TimeSource::generation();
  const int64_t now = TimeSource::now();
  while (const auto timer = takeDue(now, generation)) timer->fire();
}

/// The next timer whose deadline has passed by `now`, a time of that source; null, with somebody to
/// ring for the next one, when there is none.
std::shared_ptr<QueueTimer> TimerService::takeDue(int64_t now, uint64_t generation) {
  Heap stale;
  MutexLock lock(heapMutex_);
  stale = takeStaleWhileLocked();
  if (generation == generation_ && armedDeadline_ <= now) disarmWhileLocked();
  while (generation == generation_ && heap_.earliest() && *heap_.earliest() <= now) {
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

int64_t TimerService::beginKeeping() {
  MutexLock lock(heapMutex_);
  const auto earliest = heap_.earliest();
  const bool isOfReplaced = TimeSource::replacement() || generation_ != TimeSource::generation();
  if (isOfReplaced || !earliest || isKeptWhileLocked(*earliest)) return kNever;
  kept_.push_back(*earliest);
  disarmWhileLocked();
  return *earliest;
}

void TimerService::ringKept(int64_t deadline) {
  {
    MutexLock lock(heapMutex_);
    forgetKeptWhileLocked(deadline);
  }
  if (!TimeSource::replacement()) ringDue();
}

void TimerService::forgetKeptWhileLocked(int64_t deadline) {
  const auto own = std::ranges::find(kept_, deadline);
  if (own != kept_.end()) kept_.erase(own);
}

void TimerService::endKeeping(int64_t deadline) {
  MutexLock lock(heapMutex_);
  forgetKeptWhileLocked(deadline);
  if (!TimeSource::replacement() && generation_ == TimeSource::generation()) armWhileLocked();
}

void TimerService::stop() {
  context_.stop();
  thread_.waitAtExit();
}

}  // namespace zaffo
