#include "feed/FeedInput.h"

#include <cmath>
#include <set>

namespace zaffo::feed {

FeedInput::FeedInput(std::shared_ptr<FeedView> view, Actions actions)
    : view_(std::move(view)), actions_(std::move(actions)) {}

void FeedInput::handle(const InputEvent& event) {
  switch (event.type) {
    case InputEvent::Type::Close:
      return actions_.quit();
    case InputEvent::Type::Resize:
      return actions_.resize();
    case InputEvent::Type::KeyDown:
      return pressKey(event.key);
    case InputEvent::Type::Wheel:
      return turnWheel(event.wheelY);
    case InputEvent::Type::PointerDown:
      return view_->beginDrag(event.position.y);
    case InputEvent::Type::PointerMove:
      return view_->drag(event.position.y);
    case InputEvent::Type::PointerUp:
      return view_->endDrag();
  }
}

void FeedInput::pressKey(const std::string& key) {
  static const std::set<std::string> forwards{"Down", "PageDown", "J"};
  static const std::set<std::string> backwards{"Up", "PageUp", "K"};
  static const std::set<std::string> leaving{"Q", "Escape"};
  if (forwards.contains(key)) view_->scrollToPage(view_->page() + 1);
  if (backwards.contains(key)) view_->scrollToPage(view_->page() - 1);
  if (key == "Home") view_->scrollToPage(0);
  if (key == "End") view_->scrollToPage(view_->pageCount() - 1);
  if (key == "Space") actions_.togglePlaying();
  if (leaving.contains(key)) actions_.quit();
}

void FeedInput::turnWheel(double notches) {
  // A touchpad sends many small turns and keeps sending after the fingers have left: one page per
  // glide.
  if (view_->isMoving()) {
    wheel_ = 0;
    return;
  }
  wheel_ += notches;
  if (std::abs(wheel_) < 1) return;
  view_->scrollToPage(view_->page() + (wheel_ > 0 ? 1 : -1));
  wheel_ = 0;
}

}  // namespace zaffo::feed
