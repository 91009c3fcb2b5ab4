// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/DispatchTimer.h"
#include "platform/media/output/SampleTap.h"
#include "platform/media/output/WavWriter.h"

namespace zaffo::media {

/// Moves what the tap carries into a WAV file, a few times a second, on a queue that may wait for
/// the disk. Frames that were skipped are silence in the file, so that frame n of the output always
/// lies n - (the first frame recorded) from the file's beginning.
class AudioRecorder : public std::enable_shared_from_this<AudioRecorder> {
 public:
  static constexpr int64_t kInterval = 200'000'000;

  /// `tap` is this recorder's alone.
  AudioRecorder(std::unique_ptr<WavWriter> writer, std::shared_ptr<SampleTap> tap);

  /// Begins to write. Thread: any, once.
  void start();
  /// Writes the rest, completes the file, then calls `finished` on the recorder's queue. Nothing is
  /// rendered into the tap any more. Thread: any, once.
  void finish(std::function<void()> finished);

 private:
  void drain();

  const DispatchQueuePtr queue_;
  const std::shared_ptr<SampleTap> tap_;
  DispatchTimerPtr timer_;

  // On the queue.
  std::unique_ptr<WavWriter> writer_;
  std::vector<float> batch_;
  std::optional<int64_t> firstFrame_;
};

}  // namespace zaffo::media
