#include "platform/media/codec/CodecIdentity.h"

#include <algorithm>
#include <span>

namespace zaffo::media {

namespace {

std::span<const uint8_t> extradata(const AVCodecParameters& p) {
  return {p.extradata, static_cast<std::size_t>(std::max(0, p.extradata_size))};
}

}  // namespace

CodecIdentity::CodecIdentity(const AVCodecParameters& parameters)
    : parameters_(avcodec_parameters_alloc()) {
  if (avcodec_parameters_copy(parameters_.get(), &parameters) < 0) parameters_.reset();
}

bool CodecIdentity::matches(const AVCodecParameters& parameters) const {
  if (!parameters_) return false;
  const AVCodecParameters& own = *parameters_;
  return own.codec_id == parameters.codec_id && own.format == parameters.format &&
         own.width == parameters.width && own.height == parameters.height &&
         own.sample_rate == parameters.sample_rate && own.block_align == parameters.block_align &&
         own.bits_per_coded_sample == parameters.bits_per_coded_sample &&
         av_channel_layout_compare(&own.ch_layout, &parameters.ch_layout) == 0 &&
         std::ranges::equal(extradata(own), extradata(parameters));
}

}  // namespace zaffo::media
