// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <limits>
#include <mutex>
#include <utility>

#include "platform/TimeSource.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/MainLoop.h"

namespace zaffo {

inline constexpr int64_t kNanosecondsPerMillisecond = 1'000'000;
inline constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;

/// Time that stands still unless a test moves it. While one of these lives it is the TimeSource of
/// the process: the host clock and all timers run on it. Declare it first in a test or fixture, so
/// that it outlives the objects that read the clock; one at a time. Thread: main.
///
///     ManualTime time;
///     player->setRate(1);
///     time.advance(30 * kNanosecondsPerSecond);   // milliseconds of real time
///
/// Deterministic as long as the code under test works on dispatch queues: time never moves while a
/// queue has a block to run, so every block sees the time at which it was due. Threads of other
/// kinds (a sound device's) are not waited for.
class ManualTime final : public TimeSource {
 public:
  /// Where the first one of a process begins: far from zero, as the time of a machine that has been
  /// running for a while.
  static constexpr int64_t kStart = 1000 * kNanosecondsPerSecond;

  ManualTime() { replace(this); }

  /// Lets work under way finish; timers still waiting never fire.
  ~ManualTime() override {
    dispatch_wait_until_idle();
    latest_ = now_;
    replace(nullptr);
  }
  ManualTime(const ManualTime&) = delete;
  ManualTime& operator=(const ManualTime&) = delete;

  /// Moves time on by `span` nanoseconds, stopping at the deadline of every timer on the way. At
  /// each stop, at the start and at the end it settles.
  void advance(int64_t span) {
    settle();
    const int64_t end = now_ + span;
    while (nextDeadline() <= end) {
      now_ = std::max<int64_t>(now_, nextDeadline());
      ring();
      settle();
    }
    now_ = end;
  }

  /// Moves time on by `span` nanoseconds at once, as it does for a process that was stopped: what
  /// was due meanwhile rings at the end of it.
  void leap(int64_t span) {
    settle();
    now_ += span;
    settle();
  }

  /// Runs what there is to run at the present time, on the workers and on the main queue, until
  /// nothing is left. Never returns when blocks keep queueing others without a delay.
  void settle() {
    // A turn that finds nothing, after workers that have nothing left, leaves nothing behind.
    do {
      dispatch_wait_until_idle();
      while (nextDeadline() <= now_) {
        ring();
        dispatch_wait_until_idle();
      }
    } while (MainLoop::runTurn() > 0);
  }

  [[nodiscard]] int64_t nanoseconds() const override { return now_; }

  /// Whether a timer waits. One that was cancelled may be counted until its deadline has passed.
  [[nodiscard]] bool hasTimer() const { return nextDeadline() != kNever; }

  /// The time at which this one began, and the nanoseconds it has been moved on since.
  [[nodiscard]] int64_t start() const { return start_; }
  [[nodiscard]] int64_t elapsed() const { return now_ - start_; }

  void setAlarm(int64_t deadline, std::function<void()> toRing) override {
    const std::lock_guard lock(alarmMutex_);
    alarm_ = std::move(toRing);
    deadline_ = alarm_ ? deadline : kNever;
  }

 private:
  static constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

  [[nodiscard]] int64_t nextDeadline() const {
    const std::lock_guard lock(alarmMutex_);
    return deadline_;
  }

  void ring() {
    std::function<void()> alarm;
    {
      const std::lock_guard lock(alarmMutex_);
      alarm.swap(alarm_);
      deadline_ = kNever;
    }
    if (alarm) alarm();
  }

  /// A later one goes on from here: what lives as long as the process never sees time go back.
  static inline int64_t latest_ = kStart;

  const int64_t start_ = latest_;
  std::atomic<int64_t> now_{latest_};
  mutable std::mutex alarmMutex_;
  std::function<void()> alarm_;
  int64_t deadline_ = kNever;
};

}  // namespace zaffo
