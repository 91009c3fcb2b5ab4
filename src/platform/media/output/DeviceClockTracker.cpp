// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/DeviceClockTracker.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "platform/media/FrameTime.h"

namespace zaffo::media {

namespace {

constexpr int64_t kInStepTolerance = 8'000'000;
constexpr int kInStepReports = 2;
constexpr double kSmoothing = 0.25;
/// A tenth of an error is made up each second; a lasting one is taken for drift.
constexpr double kCatchUpPerSecond = 0.1;
constexpr double kDriftPerSecond = 0.002;
constexpr double kLargestDrift = 0.005;

}  // namespace

DeviceClockTracker::DeviceClockTracker(std::shared_ptr<CMAudioClock> clock, int sampleRate,
                                       int64_t hostNanoseconds)
    : clock_(std::move(clock)),
      sampleRate_(sampleRate),
      lastHost_(hostNanoseconds),
      lastProgressHost_(hostNanoseconds) {}

DeviceClockTracker::State DeviceClockTracker::report(int64_t hostNanoseconds, int64_t framesHeard) {
  const int64_t heard = std::max(framesHeard, lastHeard_);
  if (heard > lastHeard_) lastProgressHost_ = hostNanoseconds;
  const int64_t patience = state_ == State::Settling ? kLongestStart : kLongestStandstill;
  if (hostNanoseconds - lastProgressHost_ >= patience) state_ = State::Stalled;
  if (state_ == State::Settling)
    settle(hostNanoseconds, heard);
  else if (state_ == State::Following)
    follow(hostNanoseconds, heard);
  lastHost_ = hostNanoseconds;
  lastHeard_ = heard;
  return state_;
}

void DeviceClockTracker::settle(int64_t host, int64_t heard) {
  const int64_t played = nanosecondsAtFrame(heard - lastHeard_, sampleRate_);
  const bool moving = lastHeard_ > 0 && heard > lastHeard_;
  const bool inStep = moving && std::llabs(played - (host - lastHost_)) <= kInStepTolerance;
  inStep_ = inStep ? inStep_ + 1 : 0;
  if (inStep_ < kInStepReports) return;
  state_ = State::Following;
  place(host, heard);
}

void DeviceClockTracker::follow(int64_t host, int64_t heard) {
  const int64_t shown = clock_->nanosecondsAtHostTime(host);
  const int64_t error =
      nanosecondsAtFrame(std::max<int64_t>(offset_ + heard, 0), sampleRate_) - shown;
  if (std::llabs(error) > kLargestError) {
    place(host, heard);
    return;
  }
  const double elapsed = std::min(1e-9 * static_cast<double>(host - lastHost_), 1.0);
  smoothedError_ += kSmoothing * (1e-9 * static_cast<double>(error) - smoothedError_);
  drift_ = std::clamp(drift_ + kDriftPerSecond * elapsed * smoothedError_, -kLargestDrift,
                      kLargestDrift);
  const double rate =
      std::clamp(drift_ + kCatchUpPerSecond * smoothedError_, -kLargestDrift, kLargestDrift);
  clock_->setAnchor(shown, host, 1.0 + rate);
}

void DeviceClockTracker::place(int64_t host, int64_t heard) {
  offset_ = framesAtNanoseconds(clock_->nanosecondsAtHostTime(host), sampleRate_) - heard;
  smoothedError_ = 0;
}

}  // namespace zaffo::media
