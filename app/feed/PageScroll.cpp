#include "feed/PageScroll.h"

#include <algorithm>
#include <cmath>

namespace zaffo::feed {

namespace {

constexpr int64_t kGlideTime = 250'000'000;
constexpr double kFlickSpeed = 300;            // points per second
constexpr int64_t kFlickMemory = 100'000'000;  // a finger that has rested this long does not flick
constexpr double kPull = 1.0 / 3;              // how far a drag moves beyond the first or last page

/// Quick at first, then slower, from 0 to 1.
double eased(double progress) {
  return 1 - std::pow(1 - progress, 3);
}

}  // namespace

void PageScroll::setPages(int count, double height) {
  count_ = count;
  height_ = std::max(height, 1.0);
  page_ = clamped(page_);
  offset_ = topOf(page_);
  phase_ = Phase::Resting;
}

int PageScroll::clamped(int page) const {
  return std::clamp(page, 0, std::max(count_ - 1, 0));
}

void PageScroll::glideTo(int page, int64_t now) {
  page_ = clamped(page);
  const double target = topOf(page_);
  // Gliding over every page in between would load and show videos that nobody asked for.
  offset_ = std::clamp(offset_, target - height_, target + height_);
  glideFrom_ = offset_;
  glideStart_ = now;
  phase_ = offset_ == target ? Phase::Resting : Phase::Gliding;
}

void PageScroll::beginDrag(double y, int64_t now) {
  phase_ = Phase::Dragging;
  dragStartOffset_ = offset_;
  dragStartY_ = lastY_ = y;
  lastMove_ = now;
  speed_ = 0;
}

void PageScroll::drag(double y, int64_t now) {
  if (phase_ != Phase::Dragging) return;
  if (now > lastMove_) {
    speed_ = (lastY_ - y) / (static_cast<double>(now - lastMove_) / 1e9);
    lastY_ = y;
    lastMove_ = now;
  }
  const double wanted = dragStartOffset_ + dragStartY_ - y;
  const double last = topOf(clamped(count_));
  const double inside = std::clamp(wanted, 0.0, last);
  const double pulled = inside + (wanted - inside) * kPull;
  offset_ = std::clamp(pulled, topOf(page_ - 1), topOf(page_ + 1));
}

double PageScroll::flickSpeed(int64_t now) const {
  return now - lastMove_ < kFlickMemory ? speed_ : 0;
}

void PageScroll::endDrag(int64_t now) {
  if (phase_ != Phase::Dragging) return;
  const double speed = flickSpeed(now);
  int target = page_;
  if (std::abs(speed) >= kFlickSpeed) {
    target += speed > 0 ? 1 : -1;
  } else {
    target = static_cast<int>(std::lround(offset_ / height_));
  }
  glideTo(target, now);
}

void PageScroll::advance(int64_t now) {
  if (phase_ != Phase::Gliding) return;
  const double target = topOf(page_);
  const double progress = static_cast<double>(now - glideStart_) / static_cast<double>(kGlideTime);
  if (progress >= 1) {
    offset_ = target;
    phase_ = Phase::Resting;
  } else {
    offset_ = glideFrom_ + (target - glideFrom_) * eased(std::max(progress, 0.0));
  }
}

}  // namespace zaffo::feed
