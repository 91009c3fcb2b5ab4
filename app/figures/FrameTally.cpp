// SPDX-License-Identifier: Apache-2.0
#include "figures/FrameTally.h"

#include <utility>

namespace zaffo::feed {

void FrameTally::watch(const std::shared_ptr<UIView>& outputView) {
  forget();
  if (const auto native = std::dynamic_pointer_cast<PlayerNativeOutputView>(outputView)) {
    nativeLayer_ = native->playerLayer();
  }
  if (const auto fast = std::dynamic_pointer_cast<PlayerFastOutputView>(outputView)) {
    fastLayer_ = fast->sampleBufferDisplayerLayer();
  }
  (void)takeShown();
  (void)takeDropped();
}

void FrameTally::forget() {
  nativeLayer_ = nullptr;
  fastLayer_ = nullptr;
  shown_ = dropped_ = 0;
}

uint64_t FrameTally::presentedFrames() const {
  if (nativeLayer_) return nativeLayer_->presentedFrames();
  return fastLayer_ ? fastLayer_->presentedFrames() : 0;
}

uint64_t FrameTally::droppedFrames() const {
  if (nativeLayer_) return nativeLayer_->droppedFrames();
  return fastLayer_ ? fastLayer_->droppedFrames() : 0;
}

uint64_t FrameTally::takeShown() {
  const uint64_t now = presentedFrames();
  return now - std::exchange(shown_, now);
}

uint64_t FrameTally::takeDropped() {
  const uint64_t now = droppedFrames();
  return now - std::exchange(dropped_, now);
}

int64_t FrameTally::firstPresented() const {
  if (nativeLayer_) return nativeLayer_->firstPresentedHostTime();
  return fastLayer_ ? fastLayer_->firstPresentedHostTime() : 0;
}

}  // namespace zaffo::feed
