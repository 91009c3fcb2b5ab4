// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "platform/Mutex.h"
#include "platform/coremedia/CMTimebase.h"
#include "platform/dispatch/DispatchTimer.h"

namespace zaffo {

/// Watches the time of a player on behalf of a client: follows the timebase of whatever item the
/// player holds and calls the client on a queue. Thread: any; nothing is called after cancel() on
/// that queue.
///
/// The timebase changes on one thread while the timer rings on another. Each of them looks at the
/// timebase and sets the timer in one go, under one lock: whoever comes last has seen the latest.
class TimeObserver : public std::enable_shared_from_this<TimeObserver> {
 public:
  explicit TimeObserver(DispatchQueuePtr queue) : queue_(std::move(queue)) {}
  virtual ~TimeObserver() = default;

  /// Watches another timebase from now on; none with null. `clock` tells its time where that is not
  /// quite what the client is to be told: before the start is heard.
  void follow(std::shared_ptr<CMTimebase> timebase, std::function<CMTime()> clock = nullptr);
  void cancel();

 protected:
  /// Another timebase is followed.
  virtual void followedWhileLocked(const CMTimebase& timebase) ZAFFO_REQUIRES(followMutex_) = 0;
  /// The rate or the time was set.
  virtual void changedWhileLocked(const CMTimebase& timebase) ZAFFO_REQUIRES(followMutex_) = 0;
  /// The timer asked for by wakeAtWhileLocked() has rung.
  virtual void rangWhileLocked(const CMTimebase& timebase) ZAFFO_REQUIRES(followMutex_) = 0;

  /// Rings when the timebase reaches `time`; never while it stands still.
  void wakeAtWhileLocked(const CMTimebase& timebase, CMTime time) ZAFFO_REQUIRES(followMutex_);
  void disarmWhileLocked() ZAFFO_REQUIRES(followMutex_);
  /// Runs `block` on the client's queue unless cancelled by then. The observer lives until then.
  void deliver(std::function<void()> block);
  /// The time to be told to the client; invalid when nothing is followed.
  [[nodiscard]] CMTime toldTime() ZAFFO_EXCLUDES(followMutex_);

  Mutex followMutex_;

 private:
  void changed(const std::shared_ptr<CMTimebase>& timebase);
  void ring(uint64_t timerNumber);

  const DispatchQueuePtr queue_;
  bool cancelled_ ZAFFO_GUARDED_BY(followMutex_) = false;
  std::shared_ptr<CMTimebase> timebase_ ZAFFO_GUARDED_BY(followMutex_);
  std::function<CMTime()> clock_ ZAFFO_GUARDED_BY(followMutex_);
  std::shared_ptr<void> changeObservation_ ZAFFO_GUARDED_BY(followMutex_);
  DispatchTimerPtr timer_ ZAFFO_GUARDED_BY(followMutex_);
  /// Tells the present timer from one that was cancelled while it rang.
  uint64_t timerNumber_ ZAFFO_GUARDED_BY(followMutex_) = 0;
};

/// Tells when playback passes one of some times, the one that it starts at included.
class BoundaryTimeObserver final : public TimeObserver {
 public:
  BoundaryTimeObserver(std::vector<CMTime> times, DispatchQueuePtr queue,
                       std::function<void()> block);

 private:
  void followedWhileLocked(const CMTimebase& timebase) override ZAFFO_REQUIRES(followMutex_);
  void changedWhileLocked(const CMTimebase& timebase) override ZAFFO_REQUIRES(followMutex_);
  void rangWhileLocked(const CMTimebase& timebase) override ZAFFO_REQUIRES(followMutex_);
  void startAtWhileLocked(CMTime time) ZAFFO_REQUIRES(followMutex_);
  void passUpToWhileLocked(CMTime time) ZAFFO_REQUIRES(followMutex_);
  void aimWhileLocked(const CMTimebase& timebase) ZAFFO_REQUIRES(followMutex_);

  const std::vector<CMTime> times_;  ///< ascending
  const std::function<void()> block_;
  std::size_t next_ ZAFFO_GUARDED_BY(followMutex_) = 0;  ///< the boundary to be passed next
  bool moving_ ZAFFO_GUARDED_BY(followMutex_) = false;
};

/// Tells the time at every interval of media time, and when the rate or the time is set.
class PeriodicTimeObserver final : public TimeObserver {
 public:
  PeriodicTimeObserver(CMTime interval, DispatchQueuePtr queue, std::function<void(CMTime)> block);

 private:
  void followedWhileLocked(const CMTimebase& timebase) override ZAFFO_REQUIRES(followMutex_);
  void changedWhileLocked(const CMTimebase& timebase) override ZAFFO_REQUIRES(followMutex_);
  void rangWhileLocked(const CMTimebase& timebase) override ZAFFO_REQUIRES(followMutex_);
  void aimWhileLocked(const CMTimebase& timebase) ZAFFO_REQUIRES(followMutex_);
  void tell();

  const CMTime interval_;
  const std::function<void(CMTime)> block_;
  /// A change is on its way to the client already.
  bool telling_ ZAFFO_GUARDED_BY(followMutex_) = false;
};

}  // namespace zaffo
