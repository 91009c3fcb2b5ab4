// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/media/output/FrameRing.h"

namespace zaffo::media {

/// Hands rings from a writer to a reader and back. A ring is always in one place:
///
///              post()                   take()
///     free ─────────────▶ in the box ─────────────▶ with the reader
///      ▲ ▲                    │                            │
///      │ └── the next post() ─┘                            │
///      └──────────────────────── giveBack() ───────────────┘
///
/// The writer goes on filling the ring it posted last, wherever that is. The reader gives one back
/// before it takes the next, so two rings are enough, and neither side ever waits for the other.
/// The reader's side allocates nothing, locks nothing and frees nothing.
class RingMailbox {
 public:
  /// Of rings that hold at least `capacityFrames` frames each.
  explicit RingMailbox(int64_t capacityFrames) : capacity_(capacityFrames) {}

  // Writer: one thread at a time.
  /// Posts an empty ring whose first frame is `firstFrame`, in place of one that was not taken. It
  /// is the writer's to fill until the next post().
  [[nodiscard]] FrameRing& post(int64_t firstFrame);

  // Any thread.
  /// Calls off whatever was posted before.
  void callOff();
  /// Whether nothing was posted since it was called off last, if ever.
  [[nodiscard]] bool isCalledOff() const { return calledOff_.load() >= posted_.load(); }

  // Reader: one thread at a time.
  /// Whether a ring was posted that has not been taken. If take() finds it gone, another one is on
  /// its way.
  [[nodiscard]] bool holdsRing() const { return box_.load(std::memory_order_relaxed) != nullptr; }
  /// The ring posted last, or null. The reader has none at this time.
  [[nodiscard]] const FrameRing* take() { return box_.exchange(nullptr); }
  [[nodiscard]] bool isCalledOff(const FrameRing& ring) const {
    return ring.serial() <= calledOff_.load();
  }
  /// The reader is through with `ring`, which it took last.
  void giveBack(const FrameRing& ring) { givenBack_.store(ring.serial()); }

 private:
  [[nodiscard]] FrameRing& freeRing();

  const int64_t capacity_;
  std::vector<std::unique_ptr<FrameRing>> rings_;  ///< the writer's
  std::atomic<FrameRing*> box_{nullptr};
  // Serial numbers of rings; they count up from 1.
  std::atomic<uint64_t> posted_{0};
  std::atomic<uint64_t> calledOff_{0};
  std::atomic<uint64_t> givenBack_{0};
};

}  // namespace zaffo::media
