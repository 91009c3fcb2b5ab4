// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/FadeTail.h"

#include <algorithm>

namespace zaffo::media {

void FadeTail::add(int index, float left, float right) {
  if (index < 0 || index >= kFadeFrames) return;
  moveToFront();
  const float gain = 1.0f - static_cast<float>(index + 1) / static_cast<float>(kFadeFrames + 1);
  const auto slot = static_cast<size_t>(2 * index);
  samples_[slot] += gain * left;
  samples_[slot + 1] += gain * right;
  end_ = std::max(end_, index + 1);
}

void FadeTail::mix(std::span<float> out) {
  const int frames = std::min(end_ - position_, static_cast<int>(out.size() / 2));
  for (int i = 0; i < 2 * frames; ++i) {
    out[static_cast<size_t>(i)] += samples_[static_cast<size_t>(2 * position_ + i)];
  }
  position_ += frames;
  if (position_ == end_) moveToFront();
}

void FadeTail::moveToFront() {
  if (position_ == 0) return;
  const auto rest =
      std::copy(samples_.begin() + 2 * position_, samples_.begin() + 2 * end_, samples_.begin());
  std::fill(rest, samples_.end(), 0.0f);
  end_ -= position_;
  position_ = 0;
}

}  // namespace zaffo::media
