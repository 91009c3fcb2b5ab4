// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/foundation/Result.h"
#include "platform/media/Outcome.h"
#include "platform/media/Sample.h"
#include "platform/media/codec/AudioBlock.h"

namespace zaffo::media {

/// Decodes one audio track, removes encoder delay and padding, mixes to stereo and resamples.
/// Blocks follow each other without a gap or an overlap unless the samples' times jump. Sound
/// begins and ends at exactly the output frames of a sample's heard range, and is right from the
/// first of them: what is decoded before it has gone through the resampler too.
/// Thread: one at a time.
class AudioDecoder {
 public:
  /// Fails when there is no decoder or it refuses the parameters.
  static Result<std::unique_ptr<AudioDecoder>> open(const AVCodecParameters& parameters,
                                                    int outputSampleRate);
  virtual ~AudioDecoder() = default;

  /// As those of VideoDecoder.
  [[nodiscard]] virtual Outcome send(const Sample& sample) = 0;
  [[nodiscard]] virtual Outcome receive(AudioBlock& block) = 0;
  virtual void drain() = 0;
  virtual void reset() = 0;
  /// Whether samples with these parameters can be sent, after a reset() at the latest.
  [[nodiscard]] virtual bool decodes(const AVCodecParameters& parameters) const = 0;
  [[nodiscard]] virtual NSErrorPtr error() const = 0;
};

}  // namespace zaffo::media
