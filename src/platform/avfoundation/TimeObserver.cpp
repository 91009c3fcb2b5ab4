#include "platform/avfoundation/TimeObserver.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/TimeSource.h"

namespace zaffo {

void TimeObserver::follow(std::shared_ptr<CMTimebase> timebase, std::function<CMTime()> clock) {
  std::shared_ptr<void> observation;
  if (timebase) {
    observation = timebase->observeChanges(
        [weakSelf = weak_from_this(), weakTimebase = std::weak_ptr<CMTimebase>(timebase)] {
          const auto self = weakSelf.lock();
          const auto changed = weakTimebase.lock();
          if (self && changed) self->timebaseChanged(changed);
        });
  }
  {
    MutexLock lock(followMutex_);
    if (cancelled_) return;
    timebase_ = timebase;
    clock_.swap(clock);
    changeObservation_.swap(observation);
    if (timer_) timer_->cancel();
    timer_ = nullptr;
  }
  if (timebase) timebaseChanged(timebase);
}

void TimeObserver::cancel() {
  std::shared_ptr<void> observation;
  MutexLock lock(followMutex_);
  cancelled_ = true;
  timebase_ = nullptr;
  changeObservation_.swap(observation);
  if (timer_) timer_->cancel();
  timer_ = nullptr;
}

void TimeObserver::wakeAt(const std::shared_ptr<CMTimebase>& timebase, CMTime time) {
  auto due = timebase->hostTimeAtTime(time);
  // Reached while it was being aimed at: that is now.
  if (!due && timebase->rate() > 0 && timebase->time() >= time) due = TimeSource::now();
  if (!due) return disarm();
  MutexLock lock(followMutex_);
  if (timer_) timer_->cancel();
  timer_ = nullptr;
  if (cancelled_) return;
  timer_ = dispatch_timer_at(*due, queue_, [weakSelf = weak_from_this()] {
    if (const auto self = weakSelf.lock()) self->ring();
  });
}

CMTime TimeObserver::timeOf(const std::shared_ptr<CMTimebase>& timebase) {
  std::function<CMTime()> clock;
  {
    MutexLock lock(followMutex_);
    clock = clock_;
  }
  return clock ? clock() : timebase->time();
}

void TimeObserver::disarm() {
  MutexLock lock(followMutex_);
  if (timer_) timer_->cancel();
  timer_ = nullptr;
}

void TimeObserver::ring() {
  std::shared_ptr<CMTimebase> timebase;
  {
    MutexLock lock(followMutex_);
    timebase = timebase_;
  }
  if (timebase) timerRang(timebase);
}

void TimeObserver::deliver(std::function<void()> block) {
  queue_->async([self = shared_from_this(), block = std::move(block)] {
    {
      MutexLock lock(self->followMutex_);
      if (self->cancelled_) return;
    }
    block();
  });
}

// Boundaries.

BoundaryTimeObserver::BoundaryTimeObserver(std::vector<CMTime> times, DispatchQueuePtr queue,
                                           std::function<void()> block)
    : TimeObserver(std::move(queue)),
      times_([&times] {
        std::erase_if(times, [](CMTime time) { return !CMTIME_IS_NUMERIC(time); });
        std::sort(times.begin(), times.end());
        return std::move(times);
      }()),
      block_(std::move(block)) {}

void BoundaryTimeObserver::timebaseChanged(const std::shared_ptr<CMTimebase>& timebase) {
  const bool moves = timebase->rate() > 0;
  const CMTime now = timeOf(timebase);
  bool wasMoving;
  {
    MutexLock lock(passedMutex_);
    wasMoving = std::exchange(moving_, moves);
  }
  // What was passed before it stopped counts, even if its timer has not rung yet.
  if (wasMoving && !moves) passUpTo(now);
  if (!wasMoving) {
    MutexLock lock(passedMutex_);
    const auto first = std::lower_bound(times_.begin(), times_.end(), now);
    next_ = static_cast<std::size_t>(first - times_.begin());
  }
  aim(timebase);
}

void BoundaryTimeObserver::timerRang(const std::shared_ptr<CMTimebase>& timebase) {
  passUpTo(timeOf(timebase));
  aim(timebase);
}

void BoundaryTimeObserver::passUpTo(CMTime time) {
  std::size_t passed = 0;
  {
    MutexLock lock(passedMutex_);
    for (; next_ < times_.size() && times_[next_] <= time; ++next_) ++passed;
  }
  for (; passed > 0; --passed) deliver(block_);
}

void BoundaryTimeObserver::aim(const std::shared_ptr<CMTimebase>& timebase) {
  CMTime boundary = kCMTimeInvalid;
  {
    MutexLock lock(passedMutex_);
    if (moving_ && next_ < times_.size()) boundary = times_[next_];
  }
  if (CMTIME_IS_VALID(boundary)) {
    wakeAt(timebase, boundary);
  } else {
    disarm();
  }
}

// Intervals.

PeriodicTimeObserver::PeriodicTimeObserver(CMTime interval, DispatchQueuePtr queue,
                                           std::function<void(CMTime)> block)
    : TimeObserver(std::move(queue)), interval_(interval), block_(std::move(block)) {}

void PeriodicTimeObserver::timebaseChanged(const std::shared_ptr<CMTimebase>& timebase) {
  // A seek sets the rate and the time several times in a row; the client is told once.
  if (!telling_.exchange(true)) {
    deliver([this, timebase] {
      telling_ = false;
      block_(timeOf(timebase));
    });
  }
  aim(timebase);
}

void PeriodicTimeObserver::timerRang(const std::shared_ptr<CMTimebase>& timebase) {
  if (timebase->rate() <= 0) return;
  deliver([this, time = timeOf(timebase)] { block_(time); });
  aim(timebase);
}

/// The next multiple of the interval after the present time.
void PeriodicTimeObserver::aim(const std::shared_ptr<CMTimebase>& timebase) {
  const double interval = CMTimeGetSeconds(interval_);
  if (!(interval > 0) || timebase->rate() <= 0) return disarm();
  const double now = CMTimeGetSeconds(timeOf(timebase));
  const double next = (std::floor(now / interval + 1e-6) + 1) * interval;
  wakeAt(timebase, CMTimeMakeWithSeconds(next, 1'000'000'000));
}

}  // namespace zaffo
