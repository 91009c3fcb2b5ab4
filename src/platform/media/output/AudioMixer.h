// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/Mutex.h"
#include "platform/media/output/InputChannel.h"
#include "platform/media/output/RenderGate.h"
#include "platform/media/output/SampleTap.h"

namespace zaffo::media {

/// Sums the inputs, frame by frame on the output's time line.
///
/// The render side may: read the published set of inputs, read their rings, do arithmetic, write to
/// the tap's ring and store atomics. It takes no lock, allocates and frees nothing, logs nothing
/// and makes no system call. The set of inputs is immutable once published; a change publishes
/// another one, and the old one is freed by a later change or by sweep(), never by the render side.
class AudioMixer {
 public:
  AudioMixer();
  ~AudioMixer();  ///< nobody renders any more

  // Any thread.
  [[nodiscard]] std::shared_ptr<InputChannel> add(int64_t capacityFrames)
      ZAFFO_EXCLUDES(inputsMutex_);
  /// Stops `channel`; it leaves the mix once it has faded out (see sweep()).
  void remove(const std::shared_ptr<InputChannel>& channel) ZAFFO_EXCLUDES(inputsMutex_);
  /// What is rendered from now on also goes to `tap`; null ends that. The former tap receives
  /// nothing more once gate().hasPassed() what this returns.
  uint64_t setTap(std::shared_ptr<SampleTap> tap) ZAFFO_EXCLUDES(inputsMutex_);
  /// Lets go of removed inputs that have fallen silent and of sets that nobody reads any more.
  /// Returns whether something is left that needs another sweep.
  bool sweep() ZAFFO_EXCLUDES(inputsMutex_);
  [[nodiscard]] size_t inputCount() const ZAFFO_EXCLUDES(inputsMutex_);

  [[nodiscard]] RenderGate& gate() { return gate_; }
  /// The frame that is rendered next; every one below it has been.
  [[nodiscard]] int64_t nextFrame() const { return nextFrame_.load(std::memory_order_acquire); }
  /// The frame after the last one in which an input was in use.
  [[nodiscard]] int64_t lastActiveFrame() const {
    return lastActiveFrame_.load(std::memory_order_acquire);
  }

  /// Render side, inside the gate: fills `out` (interleaved stereo) with the frames from `first`
  /// on. A first frame beyond nextFrame() skips what lies between; one below it gives silence until
  /// nextFrame() is reached, since no frame is rendered twice. Returns whether an input is in use.
  bool render(int64_t first, std::span<float> out);

 private:
  struct InputSet {
    std::vector<std::shared_ptr<InputChannel>> channels;
    std::shared_ptr<SampleTap> tap;
  };
  struct OldSet {
    std::unique_ptr<const InputSet> set;
    uint64_t ticket;
  };

  void publishWhileLocked(std::unique_ptr<const InputSet> set) ZAFFO_REQUIRES(inputsMutex_);
  [[nodiscard]] std::vector<OldSet> takeUnusedWhileLocked() ZAFFO_REQUIRES(inputsMutex_);

  RenderGate gate_;
  std::atomic<const InputSet*> published_;
  std::atomic<int64_t> nextFrame_{0};
  std::atomic<int64_t> lastActiveFrame_{0};

  mutable Mutex inputsMutex_;
  std::unique_ptr<const InputSet> current_ ZAFFO_GUARDED_BY(inputsMutex_);
  std::vector<std::shared_ptr<InputChannel>> leaving_ ZAFFO_GUARDED_BY(inputsMutex_);
  std::vector<OldSet> oldSets_ ZAFFO_GUARDED_BY(inputsMutex_);
};

}  // namespace zaffo::media
