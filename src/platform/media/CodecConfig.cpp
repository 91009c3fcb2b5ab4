// SPDX-License-Identifier: Apache-2.0
#include "platform/media/CodecConfig.h"

#include <algorithm>
#include <span>

namespace zaffo::media {
namespace {

std::span<const uint8_t> extradata(const AVCodecParameters& p) {
  return {p.extradata, static_cast<std::size_t>(std::max(0, p.extradata_size))};
}

/// The tag, because decoders tell by it which encoder's habits to expect; aspect and colours,
/// because frames that leave them open get them from here.
bool isSamePicture(const AVCodecParameters& a, const AVCodecParameters& b) {
  return a.codec_tag == b.codec_tag && a.profile == b.profile && a.width == b.width &&
         a.height == b.height && a.sample_aspect_ratio.num == b.sample_aspect_ratio.num &&
         a.sample_aspect_ratio.den == b.sample_aspect_ratio.den && a.color_range == b.color_range &&
         a.color_space == b.color_space && a.color_primaries == b.color_primaries &&
         a.color_trc == b.color_trc && a.chroma_location == b.chroma_location;
}

bool isSameSound(const AVCodecParameters& a, const AVCodecParameters& b) {
  return a.sample_rate == b.sample_rate && a.block_align == b.block_align &&
         a.bits_per_coded_sample == b.bits_per_coded_sample &&
         av_channel_layout_compare(&a.ch_layout, &b.ch_layout) == 0;
}

}  // namespace

CodecConfig::CodecConfig(const AVCodecParameters& parameters)
    : parameters_(avcodec_parameters_alloc()) {
  if (parameters_ && avcodec_parameters_copy(parameters_.get(), &parameters) < 0) {
    parameters_.reset();
  }
}

bool CodecConfig::operator==(const AVCodecParameters& other) const {
  if (!parameters_) return false;
  const AVCodecParameters& own = *parameters_;
  const bool isSameCodec = own.codec_type == other.codec_type && own.codec_id == other.codec_id &&
                           own.format == other.format &&
                           std::ranges::equal(extradata(own), extradata(other));
  if (!isSameCodec) return false;
  return own.codec_type == AVMEDIA_TYPE_AUDIO ? isSameSound(own, other) : isSamePicture(own, other);
}

}  // namespace zaffo::media
