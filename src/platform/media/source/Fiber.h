// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ucontext.h>

#include <cstddef>
#include <functional>
#include <memory>

namespace zaffo::media {

/// A stack on which work can be left in the middle and gone on with later, on whatever thread. So
/// code that knows no other way than to wait, such as FFmpeg's parsers, need hold no thread while
/// it does. What runs on it keeps nothing from before a suspend() that belongs to a thread: no
/// lock, no address of a thread's own variable. Thread: one at a time.
class Fiber {
 public:
  /// Room for parsers, which ask for little; only pages that were touched are memory.
  static constexpr std::size_t kStackBytes = 256 * 1024;
  /// How many are kept for the next work.
  static constexpr std::size_t kMostIdle = 4;

  /// One that was used before, or a new one. Ends the program where the system has no memory.
  [[nodiscard]] static std::unique_ptr<Fiber> take();
  /// Keeps one whose work has ended.
  static void giveBack(std::unique_ptr<Fiber> fiber);

  Fiber();
  ~Fiber();
  Fiber(const Fiber&) = delete;
  Fiber& operator=(const Fiber&) = delete;

  /// Starts `work`, which throws nothing, and runs it to its first suspend() or its end.
  void start(std::function<void()> work);
  /// Runs the work from where it stands to the next suspend() or its end.
  void resume();
  [[nodiscard]] bool hasEnded() const { return !work_; }

  /// For the work: goes back to who called start() or resume().
  void suspend();

 private:
  /// What a sanitizer is told of a change of stacks. Nothing without one.
  struct Switch;

  static void enter();
  void serve();

  void* memory_ = nullptr;  // a page that must not be touched, then the stack
  std::size_t guardBytes_ = 0;
  ucontext_t outside_{}, inside_{};
  std::function<void()> work_;
  bool quits_ = false;

  /// A sanitizer's, of which each needs some.
  struct Shadow {
    void* own = nullptr;
    void* outside = nullptr;
    const void* outsideStack = nullptr;
    std::size_t outsideBytes = 0;
    void* fakeStack = nullptr;
  };
  [[maybe_unused]] Shadow shadow_;
};

}  // namespace zaffo::media
