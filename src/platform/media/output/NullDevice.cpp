// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/NullDevice.h"

#include <algorithm>
#include <utility>

#include "platform/TimeSource.h"
#include "platform/dispatch/Confinement.h"

namespace zaffo::media {

NullDevice::NullDevice(AudioMixer& mixer, const CMClock& clock, int sampleRate,
                       DispatchQueuePtr control)
    : mixer_(mixer), clock_(clock), sampleRate_(sampleRate), control_(std::move(control)) {}

NullDevice::~NullDevice() {
  cancelTimer();
}

void NullDevice::start(DispatchBlock tick, int64_t interval) {
  assertCurrent(*control_);
  if (timer_ && interval == interval_) return;
  if (!timer_) {
    const int64_t now = clock_.nanosecondsAtHostTime(TimeSource::now());
    frame_ = std::max(mixer_.nextFrame(), framesAtNanoseconds(now, sampleRate_));
    unheard_.resize(static_cast<size_t>(2 * framesAtNanoseconds(kPeriodNanoseconds, sampleRate_)));
    mixer_.gate().passTo(kOwner);
  }
  cancelTimer();
  interval_ = interval;
  timer_ = dispatch_timer_every(interval, control_, std::move(tick));
}

void NullDevice::stop() {
  assertCurrent(*control_);
  cancelTimer();
}

void NullDevice::cancelTimer() {
  if (timer_) timer_->cancel();
  timer_ = nullptr;
}

void NullDevice::render() {
  assertCurrent(*control_);
  const int64_t now = clock_.nanosecondsAtHostTime(TimeSource::now());
  const int64_t due = framesAtNanoseconds(now + kPeriodNanoseconds, sampleRate_);
  while (frame_ < due && mixer_.gate().tryEnter(kOwner)) {
    const int64_t most = static_cast<int64_t>(unheard_.size() / 2);
    const auto count = static_cast<size_t>(2 * std::min(due - frame_, most));
    mixer_.render(frame_, std::span(unheard_).first(count));
    mixer_.gate().leave();
    frame_ += static_cast<int64_t>(count / 2);
  }
}

}  // namespace zaffo::media
