// SPDX-License-Identifier: Apache-2.0
#include "feed/FeedInput.h"

#include <cmath>
#include <set>
#include <string>

namespace zaffo::feed {

namespace {

constexpr double kStill = 8;                 // points that a finger may move within a click
constexpr int64_t kClickTime = 500'000'000;  // the longest click
constexpr int64_t kDoubleClickTime = 400'000'000;
constexpr double kDoubleClickDistance = 30;

double distance(CGPoint a, CGPoint b) {
  return std::hypot(a.x - b.x, a.y - b.y);
}

/// Keys come without what Shift makes of them; these are the ones with a question mark on the
/// keyboards of most languages.
bool isQuestionMark(const InputEvent& event) {
  static const std::set<std::string> keys{"/", "ß", ",", "'", "+", "-", "_"};
  return event.key == "?" || (event.withShift && keys.contains(event.key));
}

}  // namespace

FeedInput::FeedInput(std::shared_ptr<FeedView> view, Actions actions)
    : view_(std::move(view)), actions_(std::move(actions)) {}

void FeedInput::handle(const InputEvent& event) {
  switch (event.type) {
    case InputEvent::Type::KeyDown:
      return pressKey(event);
    case InputEvent::Type::Wheel:
      return turnWheel(event);
    case InputEvent::Type::PointerDown:
      return pressPointer(event.position);
    case InputEvent::Type::PointerMove:
      return movePointer(event.position);
    case InputEvent::Type::PointerUp:
      return releasePointer(event.position);
    default:
      return;
  }
}

void FeedInput::perform(std::string_view trigger, bool isRepeated) {
  const Binding* binding = bindingOf(trigger);
  if (binding && (binding->repeats || !isRepeated)) actions_.perform(binding->action);
}

void FeedInput::pressKey(const InputEvent& event) {
  perform(isQuestionMark(event) ? "?" : event.key, event.isRepeated);
}

void FeedInput::turnWheel(const InputEvent& event) {
  if (std::exchange(wheelHadControl_, event.withControl) != event.withControl) wheel_ = 0;
  // A touchpad sends many small turns and keeps sending after the fingers have left: one page per
  // glide.
  if (!event.withControl && view_->isMoving()) {
    wheel_ = 0;
    return;
  }
  wheel_ += event.wheelY;
  if (std::abs(wheel_) < 1) return;
  const std::string direction = wheel_ > 0 ? "wheel down" : "wheel up";
  wheel_ = 0;
  perform(event.withControl ? "Ctrl+" + direction : direction);
}

void FeedInput::pressPointer(CGPoint place) {
  press_ = Press{place, TimeSource::now(), !view_->isMoving(), actions_.isOnBar(place)};
  if (press_->isOnBar) return actions_.scrub(Phase::Begin, place.x);
  view_->beginDrag(place.y);
}

void FeedInput::movePointer(CGPoint place) {
  if (!press_) return;
  if (press_->isOnBar) return actions_.scrub(Phase::Move, place.x);
  if (distance(place, press_->place) >= kStill) press_->isClick = false;
  // A finger is never quite still: the page stays where it is until there is a drag.
  if (!press_->isClick) view_->drag(place.y);
}

void FeedInput::releasePointer(CGPoint place) {
  if (!press_) return;
  const Press press = *std::exchange(press_, std::nullopt);
  if (press.isOnBar) return actions_.scrub(Phase::End, place.x);
  view_->endDrag();
  if (press.isClick && TimeSource::now() - press.time < kClickTime) click(press.place);
}

/// The first of two clicks is not waited with: the second one takes it back.
void FeedInput::click(CGPoint place) {
  const int64_t now = TimeSource::now();
  const bool isSecond = lastClick_ && now - lastClick_->time < kDoubleClickTime &&
                        distance(place, lastClick_->place) < kDoubleClickDistance;
  lastClick_.reset();
  perform("click");
  if (isSecond) return perform("double click");
  lastClick_ = Press{place, now};
}

}  // namespace zaffo::feed
