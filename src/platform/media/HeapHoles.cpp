// SPDX-License-Identifier: Apache-2.0
#include "platform/media/HeapHoles.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "platform/TimeSource.h"
#include "platform/dispatch/DispatchTimer.h"

namespace zaffo::media {
namespace {

/// Who turns the pages of a feed gets the next decoder's memory from the heap, as it is.
constexpr int64_t kDelayNanoseconds = 500'000'000;
/// Until it is tried again.
constexpr int64_t kPauseNanoseconds = 50'000'000;
constexpr int kMostTries = 4;
constexpr std::chrono::milliseconds kLongestStillness{2};
/// None larger than decoders have themselves: an allocator may map those that are.
constexpr std::array<std::size_t, 4> kBlockSizes{512 << 10, 256 << 10, 128 << 10, 64 << 10};
/// Together no more than two or three decoders leave.
constexpr std::size_t kMostBlocks = 24;
constexpr std::size_t kSmallestPage = 4096;

/// Lets the pages go that lie wholly within a block. False when hardly any was there: the block is
/// no hole that anybody used, and further ones of its size will be no better.
bool letPagesGo(void* block, std::size_t bytes) {
  const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  const uintptr_t begin = (reinterpret_cast<uintptr_t>(block) + page - 1) / page * page;
  const uintptr_t end = (reinterpret_cast<uintptr_t>(block) + bytes) / page * page;
  std::array<unsigned char, kBlockSizes.front() / kSmallestPage> resident{};
  auto* const first = reinterpret_cast<void*>(begin);
  if (end <= begin || mincore(first, end - begin, resident.data()) != 0) return false;
  const auto pages = static_cast<std::ptrdiff_t>((end - begin) / page);
  const auto there = std::count_if(resident.begin(), resident.begin() + pages,
                                   [](unsigned char state) { return (state & 1) != 0; });
  return 2 * there > pages && madvise(first, end - begin, MADV_DONTNEED) == 0;
}

/// Whether the thread left holes since it returned some last.
class LeftHoles {
 public:
  ~LeftHoles() { set(false); }
  void set(bool left) {
    if (left != left_) threads_ += left ? 1 : -1;
    left_ = left;
  }
  /// Of how many threads that is so.
  [[nodiscard]] static int threads() { return threads_; }

 private:
  bool left_ = false;
  static inline std::atomic<int> threads_{0};
};
thread_local LeftHoles leftHoles;

/// Returns the holes of a worker and, while others have some, those of the next. Whoever is awake
/// takes the work: this one keeps still for a moment, so that another one does.
///
/// There is no way around the workers themselves. Only the allocator knows where holes lie, and a
/// page may be let go only while its block is ours; what is asked of the allocator comes from the
/// calling thread's own part of the heap. Doing it when a worker goes to sleep would be too soon,
/// in between two turns of playing, and later it would have to be woken for it. What keeps still
/// has the lowest priority and only what a quiet half second left over: other work finds other
/// workers.
void returnHolesOfWorkers(const DispatchQueuePtr& queue, unsigned workers) {
  returnHoles();
  if (workers <= 1 || LeftHoles::threads() == 0) return;
  const auto begun = std::make_shared<std::atomic<bool>>(false);
  queue->async([queue, workers, begun] {
    *begun = true;
    returnHolesOfWorkers(queue, workers - 1);
  });
  const auto end = std::chrono::steady_clock::now() + kLongestStillness;
  while (!*begun && std::chrono::steady_clock::now() < end) std::this_thread::yield();
}

/// Again a little later while any is left out.
void returnHolesAt(int64_t time, int tries) {
  const auto queue = dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_BACKGROUND);
  // The timer holds itself until it has run.
  static_cast<void>(dispatch_timer_at(time, queue, [queue, time, tries] {
    returnHolesOfWorkers(queue, std::thread::hardware_concurrency());
    if (tries > 1 && LeftHoles::threads() > 0) returnHolesAt(time + kPauseNanoseconds, tries - 1);
  }));
}

}  // namespace

void returnHoles() {
  returnHolesOf(0);
}

void returnHolesOf(std::size_t bytesFreed) {
  // Where much was freed, holes that nobody used lie among it, too.
  const std::size_t sure = bytesFreed / kBlockSizes.front(), most = kMostBlocks + sure;
  std::vector<void*> blocks;
  blocks.reserve(most);
  for (const std::size_t bytes : kBlockSizes) {
    for (bool wasHole = true; (wasHole || blocks.size() < sure) && blocks.size() < most;) {
      blocks.push_back(std::malloc(bytes));
      wasHole = blocks.back() && letPagesGo(blocks.back(), bytes);
    }
  }
  for (; !blocks.empty(); blocks.pop_back()) std::free(blocks.back());
  leftHoles.set(false);
}

void returnHolesSoon() {
  leftHoles.set(true);
  static std::atomic<int64_t> due{0};
  const int64_t now = TimeSource::now();
  int64_t next = due;
  if (now < next || !due.compare_exchange_strong(next, now + kDelayNanoseconds)) return;
  returnHolesAt(now + kDelayNanoseconds, kMostTries);
}

}  // namespace zaffo::media
