// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/Resampler.h"

extern "C" {
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <array>
#include <span>

namespace zaffo::media {
namespace {

// Streams that count their channels without naming them mean the usual arrangement.
void namedLayout(const AVChannelLayout& layout, AVChannelLayout& named) {
  if (layout.order == AV_CHANNEL_ORDER_UNSPEC) {
    av_channel_layout_default(&named, layout.nb_channels);
  } else {
    (void)av_channel_layout_copy(&named, &layout);
  }
}

std::size_t planeCount(const AVFrame& frame) {
  const bool planar = av_sample_fmt_is_planar(static_cast<AVSampleFormat>(frame.format));
  return planar ? static_cast<std::size_t>(frame.ch_layout.nb_channels) : 1;
}

}  // namespace

Resampler::~Resampler() {
  av_channel_layout_uninit(&layout_);
}

bool Resampler::fits(const AVFrame& frame) const {
  return context_ && frame.format == format_ && frame.sample_rate == rate_ &&
         av_channel_layout_compare(&frame.ch_layout, &layout_) == 0;
}

int Resampler::prepare(const AVFrame& frame) {
  AVChannelLayout input{};
  AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
  namedLayout(frame.ch_layout, input);
  SwrContext* context = nullptr;
  int result =
      swr_alloc_set_opts2(&context, &stereo, AV_SAMPLE_FMT_FLT, outputRate_, &input,
                          static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0, nullptr);
  context_.reset(context);
  const int channels = input.nb_channels;
  av_channel_layout_uninit(&input);
  if (result < 0) return result;
  av_opt_set_double(context, "rematrix_maxval", 1.0, 0);
  constexpr std::array<double, 2> kBothSides{1.0, 1.0};
  if (channels == 1) result = swr_set_matrix(context, kBothSides.data(), 1);
  if (result >= 0) result = swr_init(context);
  if (result >= 0) result = av_channel_layout_copy(&layout_, &frame.ch_layout);
  if (result < 0) {
    context_.reset();
    return result;
  }
  format_ = frame.format;
  rate_ = frame.sample_rate;
  return 0;
}

int Resampler::injectSilence(int count) {
  return swr_inject_silence(context_.get(), count);
}

int Resampler::convert(const AVFrame& frame, std::vector<float>& output) {
  const auto planes = std::span(frame.extended_data, planeCount(frame));
  std::array<const uint8_t*, 64> input{};
  if (planes.size() > input.size()) return AVERROR(EINVAL);
  std::ranges::copy(planes, input.begin());
  return run(input.data(), frame.nb_samples, output);
}

int Resampler::finish(std::vector<float>& output) {
  output.clear();
  if (!context_) return 0;
  const int result = run(nullptr, 0, output);
  context_.reset();
  return result;
}

int Resampler::run(const uint8_t** input, int count, std::vector<float>& output) {
  const int room = swr_get_out_samples(context_.get(), count);
  if (room < 0) return room;
  output.resize(static_cast<std::size_t>(room) * 2);
  auto* target = reinterpret_cast<uint8_t*>(output.data());
  const int given = room > 0 ? swr_convert(context_.get(), &target, room, input, count) : 0;
  output.resize(static_cast<std::size_t>(std::max(0, given)) * 2);
  return std::min(0, given);
}

}  // namespace zaffo::media
