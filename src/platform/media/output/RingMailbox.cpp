// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/RingMailbox.h"

namespace zaffo::media {

FrameRing& RingMailbox::post(int64_t firstFrame) {
  FrameRing* const untaken = box_.exchange(nullptr);
  FrameRing& ring = untaken ? *untaken : freeRing();
  const uint64_t serial = posted_.load(std::memory_order_relaxed) + 1;
  ring.restart(firstFrame, serial);
  posted_.store(serial);
  box_.store(&ring);
  return ring;
}

/// One that the reader does not have: it has none that was posted before the one it gave back.
FrameRing& RingMailbox::freeRing() {
  const uint64_t givenBack = givenBack_.load();
  for (const auto& ring : rings_) {
    if (ring->serial() <= givenBack) return *ring;
  }
  rings_.push_back(std::make_unique<FrameRing>(capacity_));
  return *rings_.back();
}

void RingMailbox::callOff() {
  const uint64_t posted = posted_.load();
  uint64_t present = calledOff_.load();
  while (present < posted && !calledOff_.compare_exchange_weak(present, posted)) {
  }
}

}  // namespace zaffo::media
