#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "platform/coremedia/CMClock.h"

namespace zaffo::media {

/// One player's way into the mix. The writer side belongs to the player's queue, the reader side to
/// the sound callback, which takes no lock and allocates nothing.
///
/// Frames are numbered on the output's own time line (AudioOutput::clock(), frame n is heard at
/// n / sampleRate seconds of it). What was not written in time is silence and is skipped, so sound
/// never falls behind its clock.
class AudioInput {
 public:
  virtual ~AudioInput() = default;  ///< leaves the mix; never waits for the callback

  /// Writer: forgets what was written and takes frames for output frames from `firstOutputFrame` on.
  virtual void restart(int64_t firstOutputFrame) = 0;
  /// Writer: appends interleaved stereo; returns how many frames fitted.
  virtual int64_t write(std::span<const float> interleaved) = 0;
  /// Writer: frames that can be written now.
  [[nodiscard]] virtual int64_t writable() const = 0;
  /// Writer: number of the output frame that the next written frame is for.
  [[nodiscard]] virtual int64_t nextOutputFrame() const = 0;
  /// Any: falls silent with a short fade from where the output is now. restart() ends it.
  virtual void stop() = 0;
  /// Any: 0 to 1, reached with a short ramp.
  virtual void setVolume(float volume) = 0;
};

/// The process's sound output: sums the inputs in 32-bit float at one sample rate that never
/// changes, and plays the sum on a device, or on the monotonic clock where there is none.
/// Thread: any; no call waits for a device.
class AudioOutput {
 public:
  [[nodiscard]] static AudioOutput& shared();
  virtual ~AudioOutput() = default;

  [[nodiscard]] virtual int sampleRate() const = 0;
  /// Runs whether or not anything plays; continuous through changes of device.
  [[nodiscard]] virtual const std::shared_ptr<CMClock>& clock() const = 0;
  /// The first output frame that a sound which is written now can still reach in time.
  [[nodiscard]] virtual int64_t earliestStartFrame() const = 0;
  /// A new input that holds up to `capacityFrames`.
  [[nodiscard]] virtual std::shared_ptr<AudioInput> addInput(int64_t capacityFrames) = 0;
};

}  // namespace zaffo::media
