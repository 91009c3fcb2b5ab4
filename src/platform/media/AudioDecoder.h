#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/media/DecodeOutcome.h"
#include "platform/media/Sample.h"

namespace zaffo::media {

/// Decoded sound: interleaved stereo 32-bit float at the output's sample rate.
struct AudioBlock {
  int64_t firstFrame = 0;      ///< position on the samples' time line, in output frames
  std::vector<float> samples;  ///< two per frame, left then right
  [[nodiscard]] int64_t frames() const { return static_cast<int64_t>(samples.size() / 2); }
};

/// Decodes one audio track, removes encoder delay and padding, mixes to stereo and resamples.
/// Blocks follow each other without a gap or an overlap unless the samples' times jump.
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
  [[nodiscard]] virtual NSErrorPtr error() const = 0;
};

}  // namespace zaffo::media
