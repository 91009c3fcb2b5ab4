// SPDX-License-Identifier: Apache-2.0
#include "overlay/OverlayTiming.h"

#include <algorithm>
#include <array>

namespace zaffo::feed {

namespace {

constexpr int64_t kFadeStep = 1'000'000'000 / 60;
constexpr int64_t kSpinnerStep = 1'000'000'000 / OverlayTiming::kSpinnerSteps;

double faded(int64_t until, int64_t now) {
  const auto past = static_cast<double>(now - until) / OverlayTiming::kFade;
  return until == 0 ? 0 : std::clamp(1 - past, 0.0, 1.0);
}

}  // namespace

void OverlayTiming::noteSeek(int64_t now) {
  timesUntil_ = now + kShown;
  noteActivity(now);
}

void OverlayTiming::setPaused(bool paused, int64_t now) {
  if (paused == isPaused_) return;
  isPaused_ = paused;
  pauseUntil_ = now;
  noteActivity(now);
}

void OverlayTiming::setWaiting(bool waiting, int64_t now) {
  if (!waiting) {
    waitingSince_.reset();
  } else if (!waitingSince_) {
    waitingSince_ = now;
  }
}

OverlayTiming::Look OverlayTiming::look(int64_t now) const {
  Look look;
  look.title = isPaused_ ? 1 : faded(titleUntil_, now);
  look.times = faded(timesUntil_, now);
  look.volume = faded(volumeUntil_, now);
  look.pause = isPaused_ ? 1 : faded(pauseUntil_, now);
  if (waitingSince_ && now - *waitingSince_ >= kPatience) {
    look.pause = 0;  // they share a place
    look.spinner = 1;
    look.spinnerStep = static_cast<int>((now - *waitingSince_) / kSpinnerStep % kSpinnerSteps);
  }
  return look;
}

std::optional<int64_t> OverlayTiming::nextChange(int64_t now) const {
  std::optional<int64_t> next;
  const auto consider = [&](int64_t time) {
    if (time > now && (!next || time < *next)) next = time;
  };
  for (const int64_t until : {titleUntil_, timesUntil_, volumeUntil_, pauseUntil_}) {
    if (until == 0 || now >= until + kFade) continue;
    consider(now < until ? until + 1 : std::min(now + kFadeStep, until + kFade));
  }
  if (waitingSince_) {
    const int64_t waited = now - *waitingSince_;
    consider(waited < kPatience ? *waitingSince_ + kPatience
                                : *waitingSince_ + (waited / kSpinnerStep + 1) * kSpinnerStep);
  }
  return next;
}

}  // namespace zaffo::feed
