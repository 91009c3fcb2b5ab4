#pragma once

#include <atomic>
#include <cstddef>
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
class TimeObserver : public std::enable_shared_from_this<TimeObserver> {
 public:
  explicit TimeObserver(DispatchQueuePtr queue) : queue_(std::move(queue)) {}
  virtual ~TimeObserver() = default;

  /// Watches another timebase from now on; none with null. `clock` tells its time where that is not
  /// quite what the client is to be told: before the start is heard.
  void follow(std::shared_ptr<CMTimebase> timebase, std::function<CMTime()> clock = nullptr);
  void cancel();

 protected:
  /// The rate or the time was set, or another timebase is followed.
  virtual void timebaseChanged(const std::shared_ptr<CMTimebase>& timebase) = 0;
  /// The timer asked for by wakeAt() has rung.
  virtual void timerRang(const std::shared_ptr<CMTimebase>& timebase) = 0;

  /// The time that the client is told.
  [[nodiscard]] CMTime timeOf(const std::shared_ptr<CMTimebase>& timebase);
  /// Rings when the timebase reaches `time`; never while it stands still.
  void wakeAt(const std::shared_ptr<CMTimebase>& timebase, CMTime time);
  void disarm();
  /// Runs `block` on the client's queue unless cancelled by then.
  void deliver(std::function<void()> block);

 private:
  void ring();

  const DispatchQueuePtr queue_;
  Mutex followMutex_;
  bool cancelled_ ZAFFO_GUARDED_BY(followMutex_) = false;
  std::shared_ptr<CMTimebase> timebase_ ZAFFO_GUARDED_BY(followMutex_);
  std::function<CMTime()> clock_ ZAFFO_GUARDED_BY(followMutex_);
  std::shared_ptr<void> changeObservation_ ZAFFO_GUARDED_BY(followMutex_);
  DispatchTimerPtr timer_ ZAFFO_GUARDED_BY(followMutex_);
};

/// Tells when playback passes one of some times.
class BoundaryTimeObserver final : public TimeObserver {
 public:
  BoundaryTimeObserver(std::vector<CMTime> times, DispatchQueuePtr queue,
                       std::function<void()> block);

 private:
  void timebaseChanged(const std::shared_ptr<CMTimebase>& timebase) override;
  void timerRang(const std::shared_ptr<CMTimebase>& timebase) override;
  void passUpTo(CMTime time);
  void aim(const std::shared_ptr<CMTimebase>& timebase);

  const std::vector<CMTime> times_;  ///< ascending
  const std::function<void()> block_;
  Mutex passedMutex_;
  std::size_t next_ ZAFFO_GUARDED_BY(passedMutex_) = 0;  ///< the boundary to be passed next
  bool moving_ ZAFFO_GUARDED_BY(passedMutex_) = false;
};

/// Tells the time at every interval of media time, and when the rate or the time is set.
class PeriodicTimeObserver final : public TimeObserver {
 public:
  PeriodicTimeObserver(CMTime interval, DispatchQueuePtr queue, std::function<void(CMTime)> block);

 private:
  void timebaseChanged(const std::shared_ptr<CMTimebase>& timebase) override;
  void timerRang(const std::shared_ptr<CMTimebase>& timebase) override;
  void aim(const std::shared_ptr<CMTimebase>& timebase);

  const CMTime interval_;
  const std::function<void(CMTime)> block_;
  std::atomic<bool> telling_{false};  ///< a change is on its way to the client already
};

}  // namespace zaffo
