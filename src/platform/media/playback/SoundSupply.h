// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>

#include "platform/media/playback/ItemEnd.h"
#include "platform/media/playback/PlaybackClock.h"
#include "platform/media/playback/SoundFeed.h"

namespace zaffo::media {

/// The sound of a playback, started, stopped and joined in beside its pictures; in between it flows
/// by itself. Does nothing for an item without sound. Thread: one at a time.
class SoundSupply {
 public:
  /// `volumes`: of the tracks that are not heard at full volume. `output` outlives it.
  SoundSupply(const std::shared_ptr<SampleSource>& source, std::span<const TrackVolume> volumes,
              AudioOutput& output);

  /// Called, on any thread, when the source has something again, and when all was given to the
  /// output. Set before the first prefill().
  void setReadyHandler(const std::function<void()>& handler);
  void setVolume(float volume);

  /// Decodes what a start at `time` takes. False while the source has not given enough yet.
  [[nodiscard]] bool prefill(CMTime time);
  /// Whether there is sound, and none of it can be decoded.
  [[nodiscard]] bool failed() const;

  /// Starts the sound that was prefilled for the position of `clock`, and the clock with it, so
  /// that it leaves its position when the sound is heard; at once where there is no sound.
  void start(PlaybackClock& clock, double rate, int64_t host);
  /// The clock runs at another rate now: falls silent, and joins in a little later in the right
  /// place, which is when it runs dry if the source has not given its sound by then.
  void joinAgain(const PlaybackClock& clock, double rate);
  /// Joins in now if that had to wait for the source.
  void join();
  void stop();
  /// Host time at which there is nothing more to be heard, as long as the source has nothing.
  [[nodiscard]] std::optional<int64_t> runsDryHostTime() const;
  /// Whether the clock has leapt away from it.
  [[nodiscard]] bool isLeftBehind() const;

  /// How far it has been given to the output; none where there is no sound.
  [[nodiscard]] std::optional<DataEnd> end() const;

  /// For a playback that stands still: lets go of all but what was prefilled.
  void rest();
  /// Lets go of everything.
  void close();

 private:
  /// Where sound that starts while playing comes in.
  struct Joint {
    CMTime time;
    int64_t outputFrame = 0;
    double rate = 0;
  };

  [[nodiscard]] int64_t hostTimeOf(int64_t outputFrame) const;

  AudioOutput& output_;
  std::shared_ptr<SoundFeed> feed_;
  std::optional<Joint> joint_;  ///< while it waits for its sound
};

}  // namespace zaffo::media
