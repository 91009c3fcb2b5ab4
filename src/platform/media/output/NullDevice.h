// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>

#include "platform/coremedia/CMClock.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/DispatchTimer.h"
#include "platform/media/FrameTime.h"
#include "platform/media/output/AudioMixer.h"

namespace zaffo::media {

/// Renders in step with the output's clock and throws the result away: always up to one period
/// ahead of the present time, and nothing at all while it is stopped.
/// Thread: the control queue, which must be serial; destroying it, on any thread, stops it.
class NullDevice {
 public:
  static constexpr int64_t kPeriodNanoseconds = 20'000'000;
  /// An interval for when nobody hears or records what is rendered: it can wait and be done in
  /// larger pieces.
  static constexpr int64_t kUnheardInterval = 5 * kPeriodNanoseconds;
  static constexpr RenderGate::Owner kOwner = 1;

  /// `control`: the queue that it lives on. `mixer` and `clock` outlive it.
  NullDevice(AudioMixer& mixer, const CMClock& clock, int sampleRate, DispatchQueuePtr control);
  ~NullDevice();

  /// Takes the right to render; goes on where rendering stopped, or from the present time when that
  /// is later. Calls `tick` every `interval` nanoseconds from then on, so that the owner can render
  /// and look after things; a further call changes the interval.
  void start(DispatchBlock tick, int64_t interval);
  void stop();
  [[nodiscard]] bool running() const { return timer_ != nullptr; }

  /// Renders what is due.
  void render();

 private:
  void cancelTimer();

  AudioMixer& mixer_;
  const CMClock& clock_;
  const int sampleRate_;
  const DispatchQueuePtr control_;
  int64_t frame_ = 0;
  DispatchTimerPtr timer_;
  int64_t interval_ = 0;
  std::vector<float> unheard_;
};

}  // namespace zaffo::media
