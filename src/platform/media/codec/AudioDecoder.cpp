// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/AudioDecoder.h"

#include <algorithm>
#include <cstdlib>

#include "platform/media/CodecConfig.h"
#include "platform/media/FrameTime.h"
#include "platform/media/codec/CodecContext.h"
#include "platform/media/codec/ResampledRun.h"
#include "platform/media/codec/SampleDecoding.h"

namespace zaffo::media {
namespace {

// Timestamps that wander by less than this belong to continuous sound: containers round them to
// milliseconds, and recorders follow their own clock. A larger step is a gap or an overlap.
constexpr int64_t kJitterMilliseconds = 30;

/// Trims come from files: any number.
int limited(uint32_t samples) {
  return static_cast<int>(std::min<uint32_t>(samples, 1u << 30));
}

class SoftwareAudioDecoder : public AudioDecoder {
 public:
  SoftwareAudioDecoder(CodecContextPtr context, const AVCodecParameters& parameters, int outputRate)
      : config_(parameters),
        decoding_(std::move(context), "The sound cannot be decoded."),
        outputRate_(outputRate),
        run_(outputRate),
        frame_(av_frame_alloc()) {
    decoding_.context().flags2 |=
        AV_CODEC_FLAG2_SKIP_MANUAL;  // trimming needs the place of what is left
  }

  Outcome send(const Sample& sample) override { return decoding_.send(sample); }
  Outcome receive(AudioBlock& block) override;
  void drain() override { decoding_.drain(); }
  void reset() override;
  bool decodes(const AVCodecParameters& parameters) const override { return config_ == parameters; }
  NSErrorPtr error() const override { return decoding_.error(); }

 private:
  [[nodiscard]] int nextFrame();
  void locateFrame(const SampleTimes::Entry* entry);
  [[nodiscard]] bool continuesRun() const;
  [[nodiscard]] int convertFrame(AudioBlock& block);

  const CodecConfig config_;
  SampleDecoding decoding_;
  const int outputRate_;
  ResampledRun run_;
  FramePtr frame_;
  bool hasFrame_ = false;    // frame_ is still to be converted
  SampleTimes::Entry last_;  // of the sample that frame_ came out of
  HeardPart part_;           // of frame_
  double position_ = 0;      // of frame_, in output frames
  double decodedEnd_ = 0;    // output frame after frame_
  int skip_ = 0;             // source samples still to be left out
  double grain_ = 1;         // output frames that one unit of the samples' times lasts
  bool cutHere_ = false;     // frame_ is not heard from its beginning
  bool cutBefore_ = false;   // or the frame before it not up to its end
  bool hasTailCut_ = true;   // frame_ is not heard up to its end
};

Outcome SoftwareAudioDecoder::receive(AudioBlock& block) {
  decoding_.clearError();
  for (;;) {
    const int decoded = hasFrame_ ? 0 : nextFrame();
    if (decoded < 0 && decoded != AVERROR_EOF) return decoding_.fail(decoded);
    if (run_.active() && (decoded == AVERROR_EOF || !continuesRun())) {
      if (const int result = run_.finish(block); result < 0) return decoding_.fail(result);
    } else {
      if (decoded == AVERROR_EOF) return Outcome::End;
      if (const int result = convertFrame(block); result < 0) return decoding_.fail(result);
    }
    if (!block.samples.empty()) return Outcome::Ready;
  }
}

int SoftwareAudioDecoder::nextFrame() {
  if (const int result = decoding_.receive(frame_); result < 0) return result;
  const bool usable =
      frame_->sample_rate > 0 && frame_->ch_layout.nb_channels > 0 && frame_->nb_samples > 0;
  if (!usable) return AVERROR_INVALIDDATA;
  // A frame without a number is a further one out of the same packet.
  locateFrame(decoding_.sampleOf(*frame_));
  hasFrame_ = true;
  return 0;
}

/// Where the frame stands, and what of it is heard.
void SoftwareAudioDecoder::locateFrame(const SampleTimes::Entry* entry) {
  cutBefore_ = hasTailCut_;
  if (entry) last_ = *entry;
  const bool timed = entry && CMTIME_IS_NUMERIC(entry->presentation);
  position_ = timed ? framePosition(entry->presentation, outputRate_) : decodedEnd_;
  if (timed) grain_ = 1 + static_cast<double>(outputRate_) / entry->presentation.timescale;
  const int total = frame_->nb_samples;
  decodedEnd_ = position_ + static_cast<double>(total) * outputRate_ / frame_->sample_rate;
  if (entry) skip_ = std::max(skip_, limited(entry->trimStart));
  part_ = {.first = std::min(skip_, total), .end = total};
  skip_ = std::max(0, skip_ - total);
  if (entry) part_.end = std::max(part_.first, total - limited(entry->trimEnd));
  if (last_.decodeOnly) part_.end = part_.first;
  if (CMTIME_IS_NUMERIC(last_.heardFrom)) part_.from = nearestFrame(last_.heardFrom, outputRate_);
  if (CMTIME_IS_NUMERIC(last_.heardUntil)) {
    part_.until = nearestFrame(last_.heardUntil, outputRate_);
  }
  const bool silent = part_.first == part_.end;
  cutHere_ = silent || part_.first > 0 || static_cast<double>(part_.from) > position_ + 1;
  hasTailCut_ = silent || part_.end < total || static_cast<double>(part_.until) < decodedEnd_ - 1;
}

/// Where something is left out, what follows stands exactly where it says.
bool SoftwareAudioDecoder::continuesRun() const {
  if (!run_.fits(*frame_)) return false;
  const bool atEdge = cutBefore_ || cutHere_;
  const double jitter = atEdge ? grain_ : kJitterMilliseconds * outputRate_ / 1000.0;
  return std::abs(position_ - run_.end()) <= jitter;
}

int SoftwareAudioDecoder::convertFrame(AudioBlock& block) {
  hasFrame_ = false;
  if (!run_.active()) {
    if (const int result = run_.begin(*frame_, position_); result < 0) return result;
  }
  return run_.add(*frame_, part_, block);
}

void SoftwareAudioDecoder::reset() {
  decoding_.reset();
  run_.cancel();
  hasFrame_ = false;
  skip_ = 0;
  hasTailCut_ = true;
}

}  // namespace

Result<std::unique_ptr<AudioDecoder>> AudioDecoder::open(const AVCodecParameters& parameters,
                                                         int outputSampleRate) {
  auto context = openCodec(parameters, 1);
  if (!context) return context.error();
  return std::make_unique<SoftwareAudioDecoder>(*std::move(context), parameters, outputSampleRate);
}

}  // namespace zaffo::media
