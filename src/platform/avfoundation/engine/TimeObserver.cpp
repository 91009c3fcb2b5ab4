// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/TimeObserver.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/TimeSource.h"

namespace zaffo {

namespace {

/// Where playback is: until its start is heard, that start.
CMTime placeOf(const CMTimebase& timebase) {
  const CMTime time = timebase.time();
  return timebase.rate() > 0 ? CMTimeMaximum(time, timebase.anchorTime()) : time;
}

}  // namespace

void TimeObserver::follow(std::shared_ptr<CMTimebase> timebase, std::function<CMTime()> clock) {
  std::shared_ptr<void> observation;
  if (timebase) {
    observation = timebase->observeChanges(
        [weakSelf = weak_from_this(), weakTimebase = std::weak_ptr<CMTimebase>(timebase)] {
          const auto self = weakSelf.lock();
          const auto changed = weakTimebase.lock();
          if (self && changed) self->changed(changed);
        });
  }
  // What was followed before is let go of with no lock held.
  MutexLock lock(followMutex_);
  if (cancelled_) return;
  timebase_.swap(timebase);
  clock_.swap(clock);
  changeObservation_.swap(observation);
  disarmWhileLocked();
  if (timebase_) followedWhileLocked(*timebase_);
}

void TimeObserver::cancel() {
  std::shared_ptr<CMTimebase> timebase;
  std::shared_ptr<void> observation;
  MutexLock lock(followMutex_);
  cancelled_ = true;
  timebase_.swap(timebase);
  changeObservation_.swap(observation);
  disarmWhileLocked();
}

void TimeObserver::changed(const std::shared_ptr<CMTimebase>& timebase) {
  MutexLock lock(followMutex_);
  if (timebase == timebase_) changedWhileLocked(*timebase);
}

void TimeObserver::ring(uint64_t timerNumber) {
  MutexLock lock(followMutex_);
  if (timebase_ && timerNumber == timerNumber_) rangWhileLocked(*timebase_);
}

void TimeObserver::wakeAtWhileLocked(const CMTimebase& timebase, CMTime time) {
  disarmWhileLocked();
  auto due = timebase.hostTimeAtTime(time);
  // Reached while it was being aimed at: that is now.
  if (!due && timebase.rate() > 0 && timebase.time() >= time) due = TimeSource::now();
  if (!due) return;
  timer_ = dispatch_timer_at(*due, queue_, [weakSelf = weak_from_this(), number = timerNumber_] {
    if (const auto self = weakSelf.lock()) self->ring(number);
  });
}

void TimeObserver::disarmWhileLocked() {
  ++timerNumber_;
  if (timer_) timer_->cancel();
  timer_ = nullptr;
}

CMTime TimeObserver::toldTime() {
  std::shared_ptr<CMTimebase> timebase;
  std::function<CMTime()> clock;
  {
    MutexLock lock(followMutex_);
    timebase = timebase_;
    clock = clock_;
  }
  if (!timebase) return kCMTimeInvalid;
  return clock ? clock() : timebase->time();
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

void BoundaryTimeObserver::followedWhileLocked(const CMTimebase& timebase) {
  moving_ = timebase.rate() > 0;
  startAtWhileLocked(placeOf(timebase));
  aimWhileLocked(timebase);
}

void BoundaryTimeObserver::changedWhileLocked(const CMTimebase& timebase) {
  const bool wasMoving = std::exchange(moving_, timebase.rate() > 0);
  // What was passed before it stopped counts, even if its timer has not rung yet.
  if (wasMoving && !moving_) passUpToWhileLocked(timebase.time());
  // It has moved on a little by the time that this is told: it starts where it was set.
  if (!wasMoving) startAtWhileLocked(timebase.anchorTime());
  aimWhileLocked(timebase);
}

void BoundaryTimeObserver::rangWhileLocked(const CMTimebase& timebase) {
  passUpToWhileLocked(timebase.time());
  aimWhileLocked(timebase);
}

void BoundaryTimeObserver::startAtWhileLocked(CMTime time) {
  const auto first = std::lower_bound(times_.begin(), times_.end(), time);
  next_ = static_cast<std::size_t>(first - times_.begin());
}

void BoundaryTimeObserver::passUpToWhileLocked(CMTime time) {
  for (; next_ < times_.size() && times_[next_] <= time; ++next_) {
    deliver([this] { block_(); });
  }
}

void BoundaryTimeObserver::aimWhileLocked(const CMTimebase& timebase) {
  if (moving_ && next_ < times_.size()) {
    wakeAtWhileLocked(timebase, times_[next_]);
  } else {
    disarmWhileLocked();
  }
}

// Intervals.

PeriodicTimeObserver::PeriodicTimeObserver(CMTime interval, DispatchQueuePtr queue,
                                           std::function<void(CMTime)> block)
    : TimeObserver(std::move(queue)), interval_(interval), block_(std::move(block)) {}

void PeriodicTimeObserver::followedWhileLocked(const CMTimebase& timebase) {
  changedWhileLocked(timebase);
}

void PeriodicTimeObserver::changedWhileLocked(const CMTimebase& timebase) {
  // A seek sets the rate and the time several times in a row; the client is told once.
  if (!std::exchange(telling_, true)) {
    deliver([this] {
      {
        MutexLock lock(followMutex_);
        telling_ = false;
      }
      tell();
    });
  }
  aimWhileLocked(timebase);
}

void PeriodicTimeObserver::rangWhileLocked(const CMTimebase& timebase) {
  if (timebase.rate() > 0) deliver([this] { tell(); });
  aimWhileLocked(timebase);
}

/// Tells the present time, unless there is none any more.
void PeriodicTimeObserver::tell() {
  const CMTime time = toldTime();
  if (CMTIME_IS_VALID(time)) block_(time);
}

/// The next multiple of the interval after the present time.
void PeriodicTimeObserver::aimWhileLocked(const CMTimebase& timebase) {
  const double interval = CMTimeGetSeconds(interval_);
  if (!(interval > 0) || timebase.rate() <= 0) return disarmWhileLocked();
  const double now = CMTimeGetSeconds(placeOf(timebase));
  const double next = (std::floor(now / interval + 1e-6) + 1) * interval;
  wakeAtWhileLocked(timebase, CMTimeMakeWithSeconds(next, 1'000'000'000));
}

}  // namespace zaffo
