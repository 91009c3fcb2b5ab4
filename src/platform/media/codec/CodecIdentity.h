#pragma once

#include "platform/media/FFmpegCommon.h"

namespace zaffo::media {

/// What a decoder was set up for, so that it serves for samples of the same kind from elsewhere.
class CodecIdentity {
 public:
  explicit CodecIdentity(const AVCodecParameters& parameters);

  /// Whether a decoder that was opened with one decodes the other.
  [[nodiscard]] bool matches(const AVCodecParameters& parameters) const;

 private:
  CodecParametersPtr parameters_;
};

}  // namespace zaffo::media
