// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/FrameRing.h"

#include <algorithm>

namespace zaffo::media {

int64_t FrameRing::write(std::span<const float> interleaved, int64_t consumed) {
  const int64_t first = end_.load(std::memory_order_relaxed);
  const int64_t taken = std::min(static_cast<int64_t>(interleaved.size() / 2), writable(consumed));
  const int64_t end = first + taken;
  int64_t frame = std::max(first, std::min(consumed, end));
  while (frame < end) {
    const int64_t slot = frame & (capacity_ - 1);
    const int64_t run = std::min(end - frame, capacity_ - slot);
    std::copy_n(interleaved.data() + 2 * (frame - first), 2 * run, samples() + 2 * slot);
    frame += run;
  }
  end_.store(end, std::memory_order_release);
  return taken;
}

}  // namespace zaffo::media
