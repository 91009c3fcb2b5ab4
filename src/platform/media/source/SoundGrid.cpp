// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/SoundGrid.h"

extern "C" {
#include <libavutil/mathematics.h>
}

#include <cstdlib>

#include "platform/media/MediaTime.h"

namespace zaffo::media {

namespace {

constexpr int kOpusRate = 48000;
constexpr int kLowestFullMp3Rate = 32000;

/// A number of samples that the length of every packet is a multiple of; 0 when there is none.
int packetSamples(const AVCodecParameters& parameters) {
  switch (parameters.codec_id) {
    case AV_CODEC_ID_OPUS:
      return kOpusRate / 400;
    case AV_CODEC_ID_MP3:
      return parameters.sample_rate < kLowestFullMp3Rate ? 576 : 1152;
    case AV_CODEC_ID_AAC:
      return 1024;
    default:
      return 0;
  }
}

}  // namespace

SoundGrid::SoundGrid(const AVCodecParameters& parameters, AVRational timeBase)
    : timeBase_(timeBase) {
  if (parameters.codec_type != AVMEDIA_TYPE_AUDIO) return;
  sampleRate_ = parameters.codec_id == AV_CODEC_ID_OPUS ? kOpusRate : parameters.sample_rate;
  const bool rounds = int64_t{timeBase_.num} * sampleRate_ > timeBase_.den;
  if (rounds && parameters.initial_padding >= 0) packetSamples_ = packetSamples(parameters);
  delaySamples_ = parameters.initial_padding;
}

CMTime SoundGrid::timeOf(int64_t timestamp) const {
  const CMTime told = timeFromTimestamp(timestamp, timeBase_);
  if (packetSamples_ == 0 || timestamp == AV_NOPTS_VALUE) return told;
  const AVRational samples{1, sampleRate_};
  const int64_t sample = av_rescale_q(timestamp, timeBase_, samples);
  // What does not fit comes back as the least number there is, which has no absolute value.
  if (sample > INT64_MAX / 4 || sample < -INT64_MAX / 4) return told;
  const int64_t packet = av_rescale(sample + delaySamples_, 1, packetSamples_);
  const int64_t exact = packet * packetSamples_ - delaySamples_;
  // The delay and the time itself were rounded by up to half a unit each.
  const int64_t unit = av_rescale_q_rnd(1, timeBase_, samples, AV_ROUND_UP);
  return std::abs(exact - sample) <= unit ? CMTimeMake(exact, sampleRate_) : told;
}

}  // namespace zaffo::media
