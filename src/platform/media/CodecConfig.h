// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/media/FFmpegCommon.h"

namespace zaffo::media {

/// What a decoder is set up with: a copy of a track's codec parameters. Two are equal when a
/// decoder that was opened with one takes the samples of the other as they come; none is equal to
/// one whose copy failed for want of memory. Immutable. Thread: any.
class CodecConfig {
 public:
  explicit CodecConfig(const AVCodecParameters& parameters);

  /// Null when out of memory.
  [[nodiscard]] const AVCodecParameters* parameters() const { return parameters_.get(); }

  [[nodiscard]] bool operator==(const AVCodecParameters& other) const;
  [[nodiscard]] bool operator==(const CodecConfig& other) const {
    return other.parameters_ && *this == *other.parameters_;
  }

 private:
  CodecParametersPtr parameters_;
};

}  // namespace zaffo::media
