// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "companion/ZFCancelCommand.h"

namespace zaffo {

/// Starts and stops a PollingObserver without knowing what it observes. Always held by shared_ptr.
class PollingObserverType {
 public:
  virtual ~PollingObserverType() = default;
  virtual void startObserving() = 0;
  virtual void stopObserving() = 0;
};

/// Watches a value by reading it at regular intervals and reports each change. The first value read
/// always counts as a change. Thread: main.
///
///     +------+  startObserving   +-----------+
///     | idle | ----------------> | observing |
///     +------+ <---------------- +-----------+
///           stopObserving, destruction
template <std::equality_comparable T>
class PollingObserver final : public PollingObserverType,
                              public std::enable_shared_from_this<PollingObserver<T>> {
 public:
  using Observe = std::function<T()>;
  using OnChanged = std::function<void(T)>;

  /// Once started, reads with `observe` every `interval` seconds and passes each new value to
  /// `onChanged`. The observer owns both functions.
  [[nodiscard]] static std::shared_ptr<PollingObserver> create(double interval, Observe observe,
                                                               OnChanged onChanged) {
    return std::shared_ptr<PollingObserver>(
        new PollingObserver(interval, std::move(observe), std::move(onChanged)));
  }
  PollingObserver(const PollingObserver&) = delete;
  PollingObserver& operator=(const PollingObserver&) = delete;
  ~PollingObserver() override { endTimer(); }

  /// Starts the timer on the main queue unless it is running; in either case reads once before
  /// returning. `onChanged` may stop or release the observer.
  void startObserving() override {
    const auto self = this->shared_from_this();
    if (!timer_) {
      timer_ =
          dispatch_every(interval_, dispatch_get_main_queue(), [weakSelf = this->weak_from_this()] {
            if (const auto observer = weakSelf.lock()) observer->doObserve();
          });
    }
    doObserve();
  }

  /// Stops the timer: no read follows. The last value is kept, so a restart reports only a change.
  void stopObserving() override { endTimer(); }

 private:
  PollingObserver(double interval, Observe observe, OnChanged onChanged)
      : observe_(std::move(observe)), onChanged_(std::move(onChanged)), interval_(interval) {}

  void doObserve() {
    const T value = observe_();
    // Stored before it is reported: a handler that calls back in here sees no change.
    const auto oldValue = std::exchange(lastValue_, value);
    if (oldValue != value) onChanged_(value);
  }

  void endTimer() {
    if (const auto timer = std::exchange(timer_, nullptr)) timer->cancel();
  }

  std::optional<T> lastValue_;
  ZFCancelCommandPtr timer_;
  const Observe observe_;
  const OnChanged onChanged_;
  const double interval_;
};

}  // namespace zaffo
