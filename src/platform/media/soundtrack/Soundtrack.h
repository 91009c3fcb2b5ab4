// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/media/output/AudioOutput.h"
#include "platform/media/soundtrack/TimeStretch.h"
#include "platform/media/soundtrack/TrackMixer.h"

namespace zaffo::media {

/// The sound of a playback, the sum of its tracks: decoded ahead of a start, then kept flowing into
/// one AudioInput. Rates other than 1 stretch the sum, so that tracks stay in step with each other.
/// Trouble with the sound ends the sound, never the playback. Thread: one at a time.
class Soundtrack {
 public:
  /// Sound that is decoded before a start, and kept while the player is idle.
  static constexpr double kPrefillSeconds = 0.2;
  /// How far ahead of the output sound is written, and how little is left when it is topped up.
  static constexpr double kAheadSeconds = 0.5;
  static constexpr double kLowSeconds = 0.25;
  /// Sound that is late by more is not decoded any more.
  static constexpr double kLeftBehindSeconds = 1;

  /// The sound tracks of `source` if they are parts of one sound, otherwise the first, each under
  /// its volume. Null when there is none.
  [[nodiscard]] static std::unique_ptr<Soundtrack> create(
      const std::shared_ptr<SampleSource>& source, std::span<const TrackVolume> volumes,
      AudioOutput& output);

  Soundtrack(std::vector<std::unique_ptr<AudioTrack>> tracks, AudioOutput& output);

  /// Decodes the first stretch of sound from `time` on; nothing to do when that is at hand. False
  /// while a source has not given enough yet: to be called again when it is ready.
  [[nodiscard]] bool prefill(CMTime time);

  /// Lets what was prefilled be heard from output frame `outputFrame` on, then what follows it, at
  /// `rate`: pitch kept from half to double speed, silence outside. What would have been heard
  /// before now is left out.
  void start(int64_t outputFrame, double rate);
  /// Tops the output up.
  void fill();
  /// Host time at which fill() has something to do again; none when it never will, or when only the
  /// source can bring it.
  [[nodiscard]] std::optional<int64_t> nextFillHostTime() const;
  /// Host time at which what was given to the output runs out; none unless it waits for the source.
  [[nodiscard]] std::optional<int64_t> runsDryHostTime() const;
  /// Whether the output has gone on so far without it, after a leap of the clock, that sound is to
  /// be started anew where it is by now. fill() does nothing then.
  [[nodiscard]] bool isLeftBehind() const;
  /// Falls silent with a short fade; the decoders stay for a soon start.
  void stop();
  /// Lets go of everything but what was prefilled.
  void release();

  void setVolume(float volume);

  /// Whether all sound that will ever be heard since the last start was handed to the output.
  [[nodiscard]] bool finished() const {
    return silent_ || (ended_ && pendingOffset_ == pending_.size());
  }
  /// Whether there is no sound because none of the tracks can be decoded.
  [[nodiscard]] bool failed() const { return sum_.failed(); }
  /// Where the sound ends, once known.
  [[nodiscard]] std::optional<CMTime> endTime() const;

  /// Called, on any thread, when prefill() or fill() waited for a source and may go on. Set before
  /// the first prefill().
  void setReadyHandler(const std::function<void()>& handler) { sum_.setReadyHandler(handler); }

 private:
  void seek(int64_t mediaFrame);
  [[nodiscard]] Outcome readSome();
  void append(std::span<const float> samples);
  void writePending();
  void endSound();

  TrackMixer sum_;
  AudioOutput& output_;
  const int sampleRate_;
  float volume_ = 1;

  std::vector<float> prefilled_;  ///< interleaved, from prefilledFrame_ on
  int64_t prefilledFrame_ = -1;   ///< on the media's time line, in output frames; -1: none
  bool prefilledIsAll_ = false;   ///< the sound ends within it
  bool prefilling_ = false;

  bool ended_ = false;
  bool silent_ = false;   ///< the rate is one that is not heard
  bool waiting_ = false;  ///< for a source

  std::shared_ptr<AudioInput> input_;
  std::unique_ptr<TimeStretch> stretch_;
  std::vector<float> sound_;       ///< read last
  std::vector<float> pending_;     ///< to be written
  std::size_t pendingOffset_ = 0;  ///< floats of pending_ that are written
};

}  // namespace zaffo::media
