#include "platform/media/HeapTrim.h"

#include <cstdlib>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <atomic>
#include <cstdint>

#include "platform/TimeSource.h"
#include "platform/dispatch/DispatchTimer.h"

namespace zaffo::media {

#if defined(__GLIBC__)

namespace {

/// Who turns the pages of a feed gets the next decoder's memory from the heap, as it is.
constexpr int64_t kDelayNanoseconds = 500'000'000;

}  // namespace

void trimHeapSoon() {
  static std::atomic<int64_t> due{0};
  const int64_t now = TimeSource::now();
  int64_t next = due;
  if (now < next || !due.compare_exchange_strong(next, now + kDelayNanoseconds)) return;
  // It holds itself until it has run.
  static_cast<void>(dispatch_timer_at(now + kDelayNanoseconds,
                                      dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_BACKGROUND),
                                      [] { malloc_trim(0); }));
}

#else

void trimHeapSoon() {}

#endif

}  // namespace zaffo::media
