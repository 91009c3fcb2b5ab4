// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/media/soundtrack/AudioTrack.h"

namespace zaffo::media {

/// The sum of audio tracks, frame by frame on the media's time line; where none has sound, silence.
/// The track that is known least far is always the one that is read on, so that at most one decoded
/// block of each waits for the others. Thread: one at a time.
class TrackMixer {
 public:
  explicit TrackMixer(std::vector<std::unique_ptr<AudioTrack>> tracks);

  /// Goes to where the sum from `frame` on is read.
  void seek(int64_t frame);
  /// Lets go of decoders and sources; seek() before the next read.
  void release();
  /// The frame that is read next; none before the first seek and after release().
  [[nodiscard]] std::optional<int64_t> position() const { return position_; }

  /// Puts interleaved stereo from position() on into `sound`, replacing it: `frames` frames or a
  /// little more, and less where the end or a source that waits comes first. Where that leaves
  /// nothing, Again while a source has nothing yet, which the ready handler will tell.
  [[nodiscard]] Outcome read(int64_t frames, std::vector<float>& sound);

  /// Whether no track can be decoded.
  [[nodiscard]] bool failed() const;
  /// The frame after the last of all sound, once it was read.
  [[nodiscard]] std::optional<int64_t> endFrame() const;
  void setReadyHandler(const std::function<void()>& handler);

 private:
  [[nodiscard]] AudioTrack& leastKnown() const;
  [[nodiscard]] int64_t mixedEnd() const;
  void add(AudioBlock block);
  void give(int64_t end, std::vector<float>& sound);

  const std::vector<std::unique_ptr<AudioTrack>> tracks_;
  std::optional<int64_t> position_;
  std::vector<float> mixed_;  ///< interleaved, from position_ on; silence beyond
};

}  // namespace zaffo::media
