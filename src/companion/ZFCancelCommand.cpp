// SPDX-License-Identifier: Apache-2.0
#include "companion/ZFCancelCommand.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "platform/dispatch/DispatchTimer.h"

namespace zaffo {

const std::shared_ptr<ZFNoopCancelCommand>& ZFNoopCancelCommand::sharedInstance() {
  static const auto instance = std::make_shared<ZFNoopCancelCommand>();
  return instance;
}

ZFCallbackCancelCommand::ZFCallbackCancelCommand(std::function<void()> cancelBlock)
    : cancelBlock_(std::move(cancelBlock)) {}

void ZFCallbackCancelCommand::cancel() {
  if (const auto block = std::exchange(cancelBlock_, nullptr)) block();
}

ZFCancellableBlock::ZFCancellableBlock(std::function<void()> block) : block_(std::move(block)) {}

void ZFCancellableBlock::run() {
  if (const auto block = std::exchange(block_, nullptr)) block();
}

void ZFCancellableBlock::cancel() {
  block_ = nullptr;
}

namespace {

/// Ends a timer on cancel.
class TimerCancelCommand final : public ZFCancelCommand {
 public:
  explicit TimerCancelCommand(DispatchTimerPtr timer) : timer_(std::move(timer)) {}
  void cancel() override { timer_->cancel(); }

 private:
  DispatchTimerPtr timer_;
};

/// Forever when it does not fit, and 0 when it is not a number.
int64_t nanosecondsFromSeconds(double seconds) {
  constexpr double kNanosecondsPerSecond = 1e9;
  constexpr auto kForEver = std::numeric_limits<int64_t>::max();
  if (!(seconds > 0)) return 0;
  if (seconds >= static_cast<double>(kForEver) / kNanosecondsPerSecond) return kForEver;
  // Rounded up, so that nothing runs early, except where the fraction is only this product's own
  // rounding error.
  constexpr double kNoise = 1e-3;
  return static_cast<int64_t>(std::ceil(seconds * kNanosecondsPerSecond - kNoise));
}

}  // namespace

ZFCancelCommandPtr dispatch_every(double seconds, const DispatchQueuePtr& queue,
                                  std::function<void()> block) {
  return std::make_shared<TimerCancelCommand>(
      dispatch_timer_every(nanosecondsFromSeconds(seconds), queue, std::move(block)));
}

ZFCancelCommandPtr dispatch_after_cancellable(double seconds, const DispatchQueuePtr& queue,
                                              std::function<void()> block) {
  return std::make_shared<TimerCancelCommand>(
      dispatch_timer_after(nanosecondsFromSeconds(seconds), queue, std::move(block)));
}

}  // namespace zaffo
