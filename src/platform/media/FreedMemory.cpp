#include "platform/media/FreedMemory.h"

#include <cstdlib>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <atomic>
#include <cstdint>

#include "platform/dispatch/DispatchTimer.h"

namespace zaffo::media {

#if defined(__GLIBC__)

namespace {

/// Who turns the pages of a feed gets the next decoder's memory from the heap, as it is.
constexpr int64_t kDelayNanoseconds = 500'000'000;

}  // namespace

void returnFreedMemorySoon() {
  static std::atomic<bool> isAwaited{false};
  if (isAwaited.exchange(true)) return;
  const auto giveBack = [] {
    isAwaited = false;
    malloc_trim(0);
  };
  // It holds itself until it has run.
  static_cast<void>(dispatch_timer_after(
      kDelayNanoseconds, dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_BACKGROUND), giveBack));
}

#else

void returnFreedMemorySoon() {}

#endif

}  // namespace zaffo::media
