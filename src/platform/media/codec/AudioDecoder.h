#pragma once

#include <memory>

#include "platform/media/Sample.h"
#include "platform/media/codec/AudioBlock.h"
#include "platform/media/codec/DecodeOutcome.h"

namespace zaffo::media {

/// Decodes one audio track, removes encoder delay and padding, mixes to stereo and resamples.
/// Blocks follow each other without a gap or an overlap unless the samples' times jump. Sound is
/// given to the output frame that a sample's heard range begins and ends with, and rightly from its
/// first frame on, since what is decoded before it passes through the resampler too.
/// Thread: one at a time.
class AudioDecoder {
 public:
  [[nodiscard]] static std::unique_ptr<AudioDecoder> open(const AVCodecParameters& parameters,
                                                          int outputSampleRate, NSErrorPtr* error);
  virtual ~AudioDecoder() = default;

  [[nodiscard]] virtual DecodeOutcome send(const Sample& sample) = 0;
  [[nodiscard]] virtual DecodeOutcome receive(AudioBlock& block) = 0;
  virtual void drain() = 0;
  virtual void reset() = 0;
  /// Whether samples with these parameters can be sent, after a reset() at the latest.
  [[nodiscard]] virtual bool decodes(const AVCodecParameters& parameters) const = 0;
  [[nodiscard]] virtual NSErrorPtr error() const = 0;
};

}  // namespace zaffo::media
