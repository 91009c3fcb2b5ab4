// SPDX-License-Identifier: Apache-2.0
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
/// n / sampleRate seconds of it). A frame that is written for output frame n is mixed at output
/// frame n or not at all. What was not written in time is silence and is skipped, so sound never
/// falls behind its clock.
///
/// Every edge is faded over 5 ms so that nothing clicks: the first frames after restart() and after
/// a gap rise from silence, and what stop(), restart(), a gap or the destructor cuts off runs down.
///
/// From restart() until stop() the input is in use and keeps the output running, whether or not
/// frames are written: stop() what is paused or at its end.
class AudioInput {
 public:
  /// Leaves the mix, with a fade if it sounds; never waits for the callback. Thread: any.
  virtual ~AudioInput() = default;

  /// Writer: forgets what was written and takes frames for output frames from `firstOutputFrame`
  /// on. A first frame that has gone by already is no error: the frames up to the present one are
  /// taken and dropped.
  virtual void restart(int64_t firstOutputFrame) = 0;
  /// Writer: appends interleaved stereo; returns how many frames fitted. 0 before the first
  /// restart().
  virtual int64_t write(std::span<const float> interleaved) = 0;
  /// Writer: frames that can be written now. Room comes back as the output moves on.
  [[nodiscard]] virtual int64_t writable() const = 0;
  /// Writer: number of the output frame that the next written frame is for.
  [[nodiscard]] virtual int64_t nextOutputFrame() const = 0;
  /// Any: falls silent with a short fade from where the output is now. restart() ends it.
  virtual void stop() = 0;
  /// Any: 0 to 1, reached within 10 ms; at once while the input is silent. Values outside are
  /// limited, NaN is 0.
  virtual void setVolume(float volume) = 0;
};

/// The process's sound output: sums the inputs in 32-bit float at one sample rate that never
/// changes, and plays the sum on a device, or on the monotonic clock where there is none. The sum
/// is not limited: more than full scale is clipped by whoever plays it. Thread: any; no call waits
/// for a device.
class AudioOutput {
 public:
  [[nodiscard]] static AudioOutput& shared();
  virtual ~AudioOutput() = default;

  /// Frames per second: 48000, whatever the device; what runs at another rate resamples behind it.
  [[nodiscard]] virtual int sampleRate() const = 0;
  /// Starts at zero with the output and runs whether or not anything plays; continuous through
  /// changes of device, never stopping or going back. A device steers it by small changes of rate.
  [[nodiscard]] virtual const std::shared_ptr<CMClock>& clock() const = 0;
  /// The first output frame that a sound which is written now can still reach in time: what has
  /// been rendered, and one period of the device for the time it takes to write.
  [[nodiscard]] virtual int64_t earliestStartFrame() const = 0;
  /// Every frame below it may be rendered by now: a device renders ahead of what is heard by its
  /// latency, in pieces as large as it likes. What goes on sounding is written well beyond it.
  /// Never less than earliestStartFrame().
  [[nodiscard]] virtual int64_t renderLimit() const = 0;
  /// A new input that holds at least `capacityFrames`, silent until its first restart(). Warms the
  /// device up, so that it is open when the sound starts.
  [[nodiscard]] virtual std::shared_ptr<AudioInput> addInput(int64_t capacityFrames) = 0;
};

}  // namespace zaffo::media
