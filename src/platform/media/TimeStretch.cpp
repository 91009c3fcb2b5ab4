#include "platform/media/TimeStretch.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/channel_layout.h>
}

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "platform/media/FFmpegCommon.h"

namespace zaffo::media {

namespace {

struct FilterGraphDeleter {
  void operator()(AVFilterGraph* graph) const { avfilter_graph_free(&graph); }
};

/// The filter's windows place a sound this much too early, in the input's time, averaged over rates
/// and kinds of sound; the same length of silence put before the input evens it out.
constexpr double kLeadSeconds = 0.013;

/// Input goes to the filter in pieces of this size, which bounds what it keeps.
constexpr size_t kPieceFrames = 1024;

class AtempoStretch final : public TimeStretch {
 public:
  AtempoStretch(int sampleRate, double rate) : sampleRate_(sampleRate), rate_(rate) {}

  [[nodiscard]] bool open() {
    char format[128];
    std::snprintf(format, sizeof format,
                  "sample_rate=%d:sample_fmt=flt:channel_layout=stereo:time_base=1/%d", sampleRate_,
                  sampleRate_);
    char tempo[32];
    std::snprintf(tempo, sizeof tempo, "tempo=%.9f", rate_);
    graph_.reset(avfilter_graph_alloc());
    received_.reset(av_frame_alloc());
    if (!graph_ || !received_) return false;
    avfilter_graph_set_auto_convert(graph_.get(), AVFILTER_AUTO_CONVERT_NONE);
    graph_->nb_threads = 1;
    AVFilterContext* stretch = nullptr;
    return add(&source_, "abuffer", format) && add(&stretch, "atempo", tempo) &&
           add(&sink_, "abuffersink", nullptr) && avfilter_link(source_, 0, stretch, 0) == 0 &&
           avfilter_link(stretch, 0, sink_, 0) == 0 &&
           avfilter_graph_config(graph_.get(), nullptr) >= 0 && sendLead();
  }

  void process(std::span<const float> input, std::vector<float>& output) override {
    while (input.size() >= 2) {
      const auto piece = input.first(std::min(input.size() / 2, kPieceFrames) * 2);
      if (send(piece)) framesIn_ += static_cast<int64_t>(piece.size() / 2);
      receive(output);
      input = input.subspan(piece.size());
    }
  }

  void finish(std::vector<float>& output) override {
    if (av_buffersrc_add_frame(source_, nullptr) >= 0) receive(output);
    const auto total = std::llround(static_cast<double>(framesIn_) / rate_);
    const auto missing = total - framesOut_;
    const auto size = static_cast<int64_t>(output.size()) + 2 * missing;
    output.resize(static_cast<size_t>(std::max<int64_t>(size, 0)));
  }

 private:
  bool add(AVFilterContext** filter, const char* name, const char* options) {
    return avfilter_graph_create_filter(filter, avfilter_get_by_name(name), nullptr, options,
                                        nullptr, graph_.get()) >= 0;
  }

  bool sendLead() {
    return send(std::vector<float>(2 * static_cast<size_t>(kLeadSeconds * sampleRate_)));
  }

  bool send(std::span<const float> piece) {
    const FramePtr frame(av_frame_alloc());
    if (!frame) return false;
    frame->format = AV_SAMPLE_FMT_FLT;
    frame->sample_rate = sampleRate_;
    frame->nb_samples = static_cast<int>(piece.size() / 2);
    av_channel_layout_default(&frame->ch_layout, 2);
    if (av_frame_get_buffer(frame.get(), 0) < 0) return false;
    std::copy(piece.begin(), piece.end(), reinterpret_cast<float*>(frame->data[0]));
    return av_buffersrc_add_frame(source_, frame.get()) >= 0;
  }

  void receive(std::vector<float>& output) {
    while (av_buffersink_get_frame(sink_, received_.get()) >= 0) {
      const auto* const samples = reinterpret_cast<const float*>(received_->data[0]);
      output.insert(output.end(), samples, samples + 2 * received_->nb_samples);
      framesOut_ += received_->nb_samples;
      av_frame_unref(received_.get());
    }
  }

  const int sampleRate_;
  const double rate_;
  std::unique_ptr<AVFilterGraph, FilterGraphDeleter> graph_;
  AVFilterContext* source_ = nullptr;
  AVFilterContext* sink_ = nullptr;
  FramePtr received_;
  int64_t framesIn_ = 0;
  int64_t framesOut_ = 0;
};

}  // namespace

std::unique_ptr<TimeStretch> TimeStretch::create(int sampleRate, double rate) {
  auto stretch = std::make_unique<AtempoStretch>(
      sampleRate, std::isnan(rate) ? 1.0 : std::clamp(rate, 0.5, 2.0));
  return stretch->open() ? std::move(stretch) : nullptr;
}

}  // namespace zaffo::media
