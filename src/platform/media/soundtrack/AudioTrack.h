// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>

#include "platform/media/codec/AudioDecoder.h"
#include "platform/media/soundtrack/VolumeEnvelope.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo::media {

/// Reads the sound of one track in blocks that stand on output frames of the media's time line,
/// each under the track's volume. A gap gives no block: nothing is decoded or
/// held for it, and where the track announces the gap, what lies behind it is not decoded early.
/// Trouble with the sound ends the sound. Thread: one at a time.
class AudioTrack {
 public:
  static constexpr int64_t kForEver = std::numeric_limits<int64_t>::max();

  using OpenDecoder = std::function<Result<std::unique_ptr<AudioDecoder>>(
      const AVCodecParameters& parameters, int outputSampleRate)>;

  AudioTrack(std::shared_ptr<SampleSource> source, int trackID, int sampleRate,
             VolumeEnvelope volume, OpenDecoder open = &AudioDecoder::open);
  ~AudioTrack();

  /// Goes to where the sound from `frame` on is read; the source is asked when there is some.
  void seek(int64_t frame);
  /// Lets go of the decoder and of what is read from the source; seek() before the next read.
  void release();

  /// All sound before it has been read; kForEver when nothing follows.
  [[nodiscard]] int64_t knownUntil() const { return ended_ ? kForEver : nextFrame_; }

  /// Reads on towards `frame`: the next block, which begins at or after what knownUntil() was, or
  /// an empty one when there is no sound up to `frame`. Again while the source has nothing yet,
  /// which the ready handler will tell.
  [[nodiscard]] Outcome read(int64_t frame, AudioBlock& block);

  /// Whether there is no sound because it cannot be had.
  [[nodiscard]] bool failed() const { return failed_; }
  /// The frame after the last of the sound, once it was read.
  [[nodiscard]] std::optional<int64_t> endFrame() const { return endFrame_; }

  /// Called, on any thread, when reading may give more than Again. Set before the first seek.
  void setReadyHandler(std::function<void()> handler) { readyHandler_ = std::move(handler); }

 private:
  [[nodiscard]] bool receive();
  [[nodiscard]] Outcome feed(int64_t frame);
  [[nodiscard]] Outcome give(int64_t frame, AudioBlock& block);
  [[nodiscard]] bool hasSoundBefore(int64_t frame);
  [[nodiscard]] bool seekCursor();
  [[nodiscard]] bool openDecoder();
  [[nodiscard]] Outcome readSample();
  [[nodiscard]] bool isWanted();
  void drain();
  void resetDecoder();
  void skipSilenceUntil(CMTime time);
  [[nodiscard]] bool isOutOfReach(int64_t frame) const;
  void fail();
  void end();

  const std::shared_ptr<SampleSource> source_;
  const int trackID_;
  const int sampleRate_;
  const VolumeEnvelope volume_;
  const OpenDecoder openDecoder_;
  std::function<void()> readyHandler_;

  std::unique_ptr<SampleCursor> cursor_;
  std::unique_ptr<AudioDecoder> decoder_;
  std::optional<Sample> sample_;  ///< read, and not sent yet
  AudioBlock block_;              ///< decoded and not given yet; empty: none
  bool cursorIsPlaced_ = false;
  bool decoderIsEmpty_ = true;  ///< nothing was sent since it was opened or reset
  int64_t nextFrame_ = 0;       ///< what is before it is known or not wanted
  int64_t decodedEnd_ = -1;     ///< the frame after the last block of the decoder since the seek
  bool ended_ = true;
  bool failed_ = false;
  std::optional<int64_t> endFrame_;
};

}  // namespace zaffo::media
