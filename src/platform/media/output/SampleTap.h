// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <span>
#include <vector>

namespace zaffo::media {

/// Carries rendered frames, each under its output frame number, from the render side to one reader.
/// Lock-free, one producer and one consumer. What does not fit is dropped, and so are frames that
/// were never rendered: the reader finds a gap in the numbers where either happened.
class SampleTap {
 public:
  explicit SampleTap(int64_t capacityFrames);

  /// Render side: the frames from `first` on.
  void push(int64_t first, std::span<const float> interleaved);

  /// Reader: moves what there is, oldest first, to the end of `interleaved`. Returns the number of
  /// its first frame; only frames that follow one another come in one call, none when it is empty.
  int64_t take(std::vector<float>& interleaved);

 private:
  struct Run {
    int64_t first;
    int64_t count;
  };
  static constexpr uint64_t kRuns = 4096;

  const uint64_t capacity_;
  std::vector<float> samples_;
  std::vector<Run> runs_;
  std::atomic<uint64_t> framesIn_{0};
  std::atomic<uint64_t> framesOut_{0};
  std::atomic<uint64_t> runsIn_{0};
  std::atomic<uint64_t> runsOut_{0};
};

}  // namespace zaffo::media
