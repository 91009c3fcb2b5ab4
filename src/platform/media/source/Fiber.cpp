// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/Fiber.h"

#include <sys/mman.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "platform/FatalError.h"
#include "platform/Mutex.h"

// g++ defines these, clang answers.
#if defined(__SANITIZE_ADDRESS__)
#define ZAFFO_ADDRESS_SANITIZER 1
#elif defined(__SANITIZE_THREAD__)
#define ZAFFO_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZAFFO_ADDRESS_SANITIZER 1
#elif __has_feature(thread_sanitizer)
#define ZAFFO_THREAD_SANITIZER 1
#endif
#endif

#if defined(ZAFFO_ADDRESS_SANITIZER)
#include <sanitizer/common_interface_defs.h>
#elif defined(ZAFFO_THREAD_SANITIZER)
#include <sanitizer/tsan_interface.h>
#endif

namespace zaffo::media {
namespace {

struct Idle {
  Mutex idleMutex;
  std::vector<std::unique_ptr<Fiber>> fibers ZAFFO_GUARDED_BY(idleMutex);
};

/// Never destroyed: threads may read until the very end.
Idle& idle() {
  static auto* const only = new Idle;
  return *only;
}

/// The one that is entered for the first time, on the thread that enters it.
thread_local Fiber* entered = nullptr;

}  // namespace

struct Fiber::Switch {
#if defined(ZAFFO_ADDRESS_SANITIZER)
  static void made(Fiber&) {}
  static void destroyed(Fiber&) {}
  static void beforeEntry(Fiber& fiber, void** fakeStack) {
    const auto* const stack = static_cast<const char*>(fiber.memory_) + fiber.guardBytes_;
    __sanitizer_start_switch_fiber(fakeStack, stack, kStackBytes);
  }
  static void afterExit(void* fakeStack) {
    __sanitizer_finish_switch_fiber(fakeStack, nullptr, nullptr);
  }
  static void afterEntry(Fiber& fiber) {
    __sanitizer_finish_switch_fiber(fiber.shadow_.fakeStack, &fiber.shadow_.outsideStack,
                                    &fiber.shadow_.outsideBytes);
  }
  static void beforeExit(Fiber& fiber) {
    __sanitizer_start_switch_fiber(fiber.quits_ ? nullptr : &fiber.shadow_.fakeStack,
                                   fiber.shadow_.outsideStack, fiber.shadow_.outsideBytes);
  }
#elif defined(ZAFFO_THREAD_SANITIZER)
  static void made(Fiber& fiber) {
    fiber.shadow_.own = __tsan_create_fiber(0);
  }
  static void destroyed(Fiber& fiber) {
    __tsan_destroy_fiber(fiber.shadow_.own);
  }
  static void beforeEntry(Fiber& fiber, void**) {
    fiber.shadow_.outside = __tsan_get_current_fiber();
    __tsan_switch_to_fiber(fiber.shadow_.own, 0);
  }
  static void afterExit(void*) {}
  static void afterEntry(Fiber&) {}
  static void beforeExit(Fiber& fiber) {
    __tsan_switch_to_fiber(fiber.shadow_.outside, 0);
  }
#else
  static void made(Fiber&) {}
  static void destroyed(Fiber&) {}
  static void beforeEntry(Fiber&, void**) {}
  static void afterExit(void*) {}
  static void afterEntry(Fiber&) {}
  static void beforeExit(Fiber&) {}
#endif
};

std::unique_ptr<Fiber> Fiber::take() {
  Idle& kept = idle();
  {
    MutexLock lock(kept.idleMutex);
    if (!kept.fibers.empty()) {
      auto fiber = std::move(kept.fibers.back());
      kept.fibers.pop_back();
      return fiber;
    }
  }
  return std::make_unique<Fiber>();
}

void Fiber::giveBack(std::unique_ptr<Fiber> fiber) {
  Idle& kept = idle();
  MutexLock lock(kept.idleMutex);
  if (kept.fibers.size() < kMostIdle) kept.fibers.push_back(std::move(fiber));
}

Fiber::Fiber() : guardBytes_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) {
  void* const memory = mmap(nullptr, guardBytes_ + kStackBytes, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
  if (memory == MAP_FAILED) fatalError("There is no memory for a stack to read on.");
  memory_ = memory;
  if (mprotect(memory_, guardBytes_, PROT_NONE) != 0 || getcontext(&inside_) != 0) {
    fatalError("A stack to read on could not be set up.");
  }
  inside_.uc_stack.ss_sp = static_cast<char*>(memory_) + guardBytes_;
  inside_.uc_stack.ss_size = kStackBytes;
  makecontext(&inside_, &Fiber::enter, 0);
  Switch::made(*this);
}

Fiber::~Fiber() {
  if (!hasEnded()) fatalError("Work was left in the middle for good.");
  quits_ = true;
  resume();  // for a sanitizer to see it leave the stack
  Switch::destroyed(*this);
  munmap(memory_, guardBytes_ + kStackBytes);
}

void Fiber::start(std::function<void()> work) {
  work_ = std::move(work);
  resume();
}

void Fiber::resume() {
  void* fakeStack = nullptr;
  entered = this;
  Switch::beforeEntry(*this, &fakeStack);
  swapcontext(&outside_, &inside_);
  Switch::afterExit(fakeStack);
}

void Fiber::suspend() {
  Switch::beforeExit(*this);
  swapcontext(&inside_, &outside_);
  Switch::afterEntry(*this);
}

/// What the stack begins with.
void Fiber::enter() {
  Fiber& self = *entered;
  Switch::afterEntry(self);
  self.serve();
}

void Fiber::serve() {
  while (!quits_) {
    work_();
    work_ = nullptr;
    suspend();
  }
  suspend();
}

}  // namespace zaffo::media
