// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

namespace zaffo::media {

/// Decides who may render, one at a time: devices come and go on threads of their own, and no two
/// may mix the same frames. The render side only tries to enter; the control side passes the right
/// on.
class RenderGate {
 public:
  using Owner = uint32_t;  ///< below 2^24

  /// Render side: whether `owner` has the right; if so, leave() must follow.
  [[nodiscard]] bool tryEnter(Owner owner) {
    uint64_t state = state_.load();
    if (ownerOf(state) != owner || isInside(state)) return false;
    return state_.compare_exchange_strong(state, state + 1);
  }
  void leave() { state_.fetch_add(1); }

  /// Control side: from now on `owner` alone may enter. Lasts at most one render that is under way.
  void passTo(Owner owner) {
    uint64_t state = state_.load();
    for (;;) {
      if (isInside(state)) {
        std::this_thread::yield();
        state = state_.load();
      } else if (state_.compare_exchange_weak(
                     state, (uint64_t{owner} << kCountBits) | ((state + 2) & kCountMask))) {
        return;
      }
    }
  }

  /// Any: identifies the render under way. What was unpublished before ticket() is out of the
  /// render side's hands as soon as hasPassed().
  [[nodiscard]] uint64_t ticket() const { return state_.load(); }
  [[nodiscard]] bool hasPassed(uint64_t ticket) const {
    return !isInside(ticket) || state_.load() != ticket;
  }

 private:
  static constexpr int kCountBits = 40;
  static constexpr uint64_t kCountMask = (uint64_t{1} << kCountBits) - 1;
  static Owner ownerOf(uint64_t state) { return static_cast<Owner>(state >> kCountBits); }
  static bool isInside(uint64_t state) { return (state & 1) != 0; }

  std::atomic<uint64_t> state_{0};
};

}  // namespace zaffo::media
