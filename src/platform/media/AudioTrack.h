#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/media/AudioDecoder.h"
#include "platform/media/AudioOutput.h"
#include "platform/media/SampleSource.h"
#include "platform/media/TimeStretch.h"

namespace zaffo::media {

/// The sound of one audio track: decoded ahead of a start, then kept flowing into an AudioInput.
/// Trouble with the sound ends the sound, never the playback. Thread: one at a time.
class AudioTrack {
 public:
  /// Sound that is decoded before a start, and kept while the player is idle.
  static constexpr double kPrefillSeconds = 0.2;
  /// How far ahead of the output sound is written, and how little is left when it is topped up.
  static constexpr double kAheadSeconds = 0.5;
  static constexpr double kLowSeconds = 0.25;

  AudioTrack(std::shared_ptr<SampleSource> source, int trackID, AudioOutput& output);

  /// Decodes the first stretch of sound from `time` on; nothing to do when that is at hand. False
  /// while the source has not given enough yet: to be called again when it is ready.
  [[nodiscard]] bool prefill(CMTime time);

  /// Lets what was prefilled be heard from output frame `outputFrame` on, then what follows it, at
  /// `rate`: pitch kept from half to double speed, silence outside.
  void start(int64_t outputFrame, double rate);
  /// Tops the output up.
  void fill();
  /// Host time at which fill() has something to do again; none when it never will.
  [[nodiscard]] std::optional<int64_t> nextFillHostTime() const;
  /// Falls silent with a short fade; the decoder stays for a soon start.
  void stop();
  /// Lets go of everything but what was prefilled.
  void release();

  void setVolume(float volume);

  /// Whether all sound that will ever be heard since the last start was handed to the output.
  [[nodiscard]] bool finished() const {
    return silent_ || (ended_ && pendingOffset_ == pending_.size());
  }
  /// Whether there is no sound because it cannot be had.
  [[nodiscard]] bool failed() const { return failed_; }
  /// Where the sound ends, once known.
  [[nodiscard]] std::optional<CMTime> endTime() const;

  void setReadyHandler(std::function<void()> handler) { readyHandler_ = std::move(handler); }

 private:
  /// What decoding one step gave.
  enum class Decoded { Block, Waiting, End };
  [[nodiscard]] Decoded decodeBlock();
  [[nodiscard]] bool seekDecoder(int64_t mediaFrame);
  void take(const AudioBlock& block);
  void append(std::span<const float> samples);
  void writePending();
  void endSound();

  const std::shared_ptr<SampleSource> source_;
  const int trackID_;
  AudioOutput& output_;
  const int sampleRate_;
  float volume_ = 1;
  std::function<void()> readyHandler_;

  std::vector<float> prefilled_;  ///< interleaved, from prefilledFrame_ on
  int64_t prefilledFrame_ = -1;   ///< on the media's time line, in output frames; -1: none
  bool prefilledIsAll_ = false;   ///< the track ends within it
  bool prefilling_ = false;

  std::unique_ptr<SampleCursor> cursor_;
  std::unique_ptr<AudioDecoder> decoder_;
  int64_t nextFrame_ = 0;      ///< media frame that is to be taken next; earlier is dropped
  int64_t decoderFrame_ = -1;  ///< media frame after the last block of the decoder; -1: none
  bool ended_ = false;
  bool silent_ = false;  ///< the rate is one that is not heard
  bool failed_ = false;
  std::optional<int64_t> endFrame_;

  std::shared_ptr<AudioInput> input_;
  std::unique_ptr<TimeStretch> stretch_;
  std::vector<float> pending_;     ///< decoded, not yet written
  std::size_t pendingOffset_ = 0;  ///< floats of pending_ that are written
};

}  // namespace zaffo::media
