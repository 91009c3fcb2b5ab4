// SPDX-License-Identifier: Apache-2.0
#include "feed/PageScroll.h"

#include <algorithm>
#include <cmath>

namespace zaffo::feed {

namespace {

constexpr double kStiffness = 26;           // of the spring, 1/s: a page takes a third of a second
constexpr double kPush = 0.6 * kStiffness;  // 1/s: what rests is set going, not only pulled
constexpr double kThere = 0.4;       // points from its page, nobody sees that it is not there
constexpr double kFlickSpeed = 300;  // points per second
constexpr int64_t kFlickMemory = 100'000'000;  // a finger that has rested this long does not flick
constexpr double kPull = 1.0 / 3;              // how far a drag moves beyond the first or last page

}  // namespace

void PageScroll::setPages(int count, double height) {
  count_ = count;
  height_ = std::max(height, 1.0);
  page_ = clamped(page_);
  offset_ = topOf(page_);
  phase_ = Phase::Resting;
}

void PageScroll::setPage(int page) {
  page_ = clamped(page);
  offset_ = topOf(page_);
  phase_ = Phase::Resting;
}

void PageScroll::setCount(int count) {
  count_ = count;
}

int PageScroll::clamped(int page) const {
  return std::clamp(page, 0, std::max(count_ - 1, 0));
}

void PageScroll::glideTo(int page, int64_t now) {
  const bool wasGliding = phase_ == Phase::Gliding;
  const double speed = wasGliding ? glideSpeedAt(now) : 0;
  page_ = clamped(page);
  // Gliding over every page in between would load and show videos that nobody asked for.
  offset_ = std::clamp(offset_, topOf(page_) - height_, topOf(page_) + height_);
  glideFrom(wasGliding ? speed : kPush * (topOf(page_) - offset_), now);
}

/// With the speed of whoever let go, but not beyond the page: a critically damped spring passes its
/// rest when it is faster than its stiffness times the distance.
void PageScroll::glideFrom(double speed, int64_t now) {
  glideDistance_ = offset_ - topOf(page_);
  const double fastest = kStiffness * std::abs(glideDistance_);
  glideSpeed_ = std::clamp(speed, -fastest, fastest);
  glideStart_ = now;
  phase_ = glideDistance_ == 0 ? Phase::Resting : Phase::Gliding;
}

void PageScroll::beginDrag(double y, int64_t now) {
  phase_ = Phase::Dragging;
  dragStartOffset_ = offset_;
  dragStartY_ = y;
  touches_.assign(1, {y, now});
}

void PageScroll::drag(double y, int64_t now) {
  if (phase_ != Phase::Dragging) return;
  touches_.push_back({y, now});
  std::erase_if(touches_, [now](const Touch& t) { return now - t.time > kFlickMemory; });
  const double wanted = dragStartOffset_ + dragStartY_ - y;
  const double last = topOf(clamped(count_));
  const double inside = std::clamp(wanted, 0.0, last);
  const double pulled = inside + (wanted - inside) * kPull;
  offset_ = std::clamp(pulled, topOf(page_ - 1), topOf(page_ + 1));
}

double PageScroll::flickSpeed(int64_t now) const {
  const Touch &first = touches_.front(), &last = touches_.back();
  if (now - last.time >= kFlickMemory || last.time == first.time) return 0;
  return (first.y - last.y) / (static_cast<double>(last.time - first.time) / 1e9);
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
  page_ = clamped(target);
  glideFrom(speed, now);
}

double PageScroll::glideTime(int64_t now) const {
  return std::max(static_cast<double>(now - glideStart_) / 1e9, 0.0);
}

double PageScroll::glideSpeedAt(int64_t now) const {
  const double time = glideTime(now);
  const double pull = glideSpeed_ + kStiffness * glideDistance_;
  return (glideSpeed_ - kStiffness * pull * time) * std::exp(-kStiffness * time);
}

void PageScroll::advance(int64_t now) {
  if (phase_ != Phase::Gliding) return;
  const double time = glideTime(now);
  const double pull = glideSpeed_ + kStiffness * glideDistance_;
  const double distance = (glideDistance_ + pull * time) * std::exp(-kStiffness * time);
  if (std::abs(distance) < kThere) {
    offset_ = topOf(page_);
    phase_ = Phase::Resting;
  } else {
    offset_ = topOf(page_) + distance;
  }
}

}  // namespace zaffo::feed
