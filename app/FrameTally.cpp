#include "FrameTally.h"

#include <utility>

namespace zaffo::feed {

void FrameTally::watch(const std::shared_ptr<UIView>& outputView) {
  const auto view = std::dynamic_pointer_cast<PlayerNativeOutputView>(outputView);
  layer_ = view ? view->playerLayer() : nullptr;
  (void)takeShown();
  (void)takeDropped();
}

void FrameTally::forget() {
  layer_ = nullptr;
  shown_ = dropped_ = 0;
}

uint64_t FrameTally::takeShown() {
  const uint64_t now = layer_ ? layer_->presentedFrames() : 0;
  return now - std::exchange(shown_, now);
}

uint64_t FrameTally::takeDropped() {
  const uint64_t now = layer_ ? layer_->droppedFrames() : 0;
  return now - std::exchange(dropped_, now);
}

int64_t FrameTally::firstPresented() const {
  return layer_ ? layer_->firstPresentedHostTime() : 0;
}

}  // namespace zaffo::feed
