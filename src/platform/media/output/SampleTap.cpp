// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/SampleTap.h"

#include <algorithm>

namespace zaffo::media {

SampleTap::SampleTap(int64_t capacityFrames)
    : capacity_(static_cast<uint64_t>(std::max(capacityFrames, int64_t{1}))),
      samples_(2 * capacity_),
      runs_(kRuns) {}

void SampleTap::push(int64_t first, std::span<const float> interleaved) {
  const uint64_t count = interleaved.size() / 2;
  const uint64_t in = framesIn_.load(std::memory_order_relaxed);
  const uint64_t run = runsIn_.load(std::memory_order_relaxed);
  const bool roomForFrames = in + count - framesOut_.load(std::memory_order_acquire) <= capacity_;
  const bool roomForRun = run - runsOut_.load(std::memory_order_acquire) < kRuns;
  if (count == 0 || !roomForFrames || !roomForRun) return;
  const uint64_t slot = in % capacity_;
  const uint64_t head = std::min(count, capacity_ - slot);
  std::copy_n(interleaved.data(), 2 * head, samples_.data() + 2 * slot);
  std::copy_n(interleaved.data() + 2 * head, 2 * (count - head), samples_.data());
  runs_[run % kRuns] = {first, static_cast<int64_t>(count)};
  framesIn_.store(in + count, std::memory_order_relaxed);
  runsIn_.store(run + 1, std::memory_order_release);
}

int64_t SampleTap::take(std::vector<float>& interleaved) {
  const uint64_t runsIn = runsIn_.load(std::memory_order_acquire);
  uint64_t run = runsOut_.load(std::memory_order_relaxed);
  if (run == runsIn) return 0;
  const int64_t first = runs_[run % kRuns].first;
  int64_t next = first;
  uint64_t out = framesOut_.load(std::memory_order_relaxed);
  for (; run != runsIn && runs_[run % kRuns].first == next; ++run) {
    const auto count = static_cast<uint64_t>(runs_[run % kRuns].count);
    const uint64_t slot = out % capacity_;
    const uint64_t head = std::min(count, capacity_ - slot);
    const float* from = samples_.data();
    interleaved.insert(interleaved.end(), from + 2 * slot, from + 2 * (slot + head));
    interleaved.insert(interleaved.end(), from, from + 2 * (count - head));
    out += count;
    next += static_cast<int64_t>(count);
  }
  framesOut_.store(out, std::memory_order_release);
  runsOut_.store(run, std::memory_order_release);
  return first;
}

}  // namespace zaffo::media
