#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>

#include "doubles/ManualTime.h"

namespace zaffo {

/// A manual time that can leap, as it does for a process that was stopped: what was due meanwhile
/// rings at the end of it. To be made before anything sets a timer, and to be destroyed after all
/// that does. Thread: main.
class LeapingTime final : public TimeSource {
 public:
  explicit LeapingTime(ManualTime& time) : time_(time) { replace(this); }
  ~LeapingTime() override {
    dispatch_wait_until_idle();
    replace(&time_);
  }
  LeapingTime(const LeapingTime&) = delete;
  LeapingTime& operator=(const LeapingTime&) = delete;

  /// Moves time on by `span` nanoseconds at once.
  void leap(int64_t span) {
    time_.settle();
    leapt_ += span;
    const auto [deadline, ring] = [this] {
      const std::lock_guard lock(alarmMutex_);
      return std::pair(deadline_, ring_);
    }();
    time_.setAlarm(deadline - leapt_, ring);
    time_.settle();
  }

  [[nodiscard]] int64_t nanoseconds() const override { return time_.nanoseconds() + leapt_; }

  void setAlarm(int64_t deadline, std::function<void()> ring) override {
    {
      const std::lock_guard lock(alarmMutex_);
      deadline_ = deadline;
      ring_ = ring;
    }
    time_.setAlarm(deadline - leapt_, std::move(ring));
  }

 private:
  ManualTime& time_;
  std::atomic<int64_t> leapt_{0};
  std::mutex alarmMutex_;
  int64_t deadline_ = 0;
  std::function<void()> ring_;
};

}  // namespace zaffo
