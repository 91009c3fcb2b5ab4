// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "platform/coremedia/CMTime.h"
#include "platform/media/FFmpegCommon.h"

namespace zaffo::media {

/// Where the packets of a sound track can begin. Some containers round times to milliseconds; but
/// the sound of most codecs comes in packets of a known number of samples, the first of which
/// begins as long before zero as the encoder delayed the sound. So a rounded time tells the exact
/// one. Immutable.
class SoundGrid {
 public:
  SoundGrid(const AVCodecParameters& parameters, AVRational timeBase);

  /// The exact time for a timestamp of the stream; the timestamp's own where the container does not
  /// round or it fits no packet.
  [[nodiscard]] CMTime timeOf(int64_t timestamp) const;

 private:
  const AVRational timeBase_;
  int sampleRate_ = 0;
  int packetSamples_ = 0;  ///< 0: times are taken as they are
  int delaySamples_ = 0;
};

}  // namespace zaffo::media
