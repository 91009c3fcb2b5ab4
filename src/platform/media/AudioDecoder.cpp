#include "platform/media/AudioDecoder.h"

extern "C" {
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "platform/media/CodecContext.h"
#include "platform/media/Resampler.h"
#include "platform/media/SampleDecoding.h"

namespace zaffo::media {
namespace {

// Timestamps that wander by less than this belong to continuous sound: containers round them to
// milliseconds, and recorders follow their own clock. A larger step is a gap or an overlap.
constexpr int64_t kJitterMilliseconds = 30;

/// The part of a decoded frame that is heard, and where.
struct Piece {
  int first = 0;
  int count = 0;
  int64_t position = 0;  // output frames
};

/// Where the resampler stands: it was fed without interruption since `start`.
struct Run {
  bool active = false;
  int64_t start = 0;     // output frames
  int64_t consumed = 0;  // source frames
  int64_t given = 0;     // output frames
};

class SoftwareAudioDecoder : public AudioDecoder {
 public:
  SoftwareAudioDecoder(CodecContextPtr context, int outputRate)
      : decoding_(std::move(context), "The sound cannot be decoded."),
        outputRate_(outputRate),
        resampler_(outputRate),
        frame_(av_frame_alloc()) {
    decoding_.context().flags2 |=
        AV_CODEC_FLAG2_SKIP_MANUAL;  // trimming needs the place of what is left
  }

  DecodeOutcome send(const Sample& sample) override { return decoding_.send(sample); }
  DecodeOutcome receive(AudioBlock& block) override;
  void drain() override { decoding_.drain(); }
  void reset() override;
  NSErrorPtr error() const override { return decoding_.error(); }

 private:
  [[nodiscard]] int nextPiece();
  [[nodiscard]] Piece heardPart(const SampleTimes::Entry* entry);
  [[nodiscard]] bool continuesRun() const;
  [[nodiscard]] int64_t outputFrame(CMTime time) const;
  [[nodiscard]] int64_t framesUpTo(CMTime bound, int64_t position, int64_t otherwise) const;
  [[nodiscard]] int64_t toOutput(int64_t sourceFrames) const;
  [[nodiscard]] int endRun(AudioBlock& block);
  [[nodiscard]] int convertPiece(AudioBlock& block);

  SampleDecoding decoding_;
  const int outputRate_;
  Resampler resampler_;
  FramePtr frame_;
  SampleTimes::Entry last_;  // of the sample that frame_ came out of
  Piece piece_;              // of frame_, still to be converted when its count is not 0
  Run run_;
  int64_t skip_ = 0;        // source frames still to be left out
  int64_t decodedEnd_ = 0;  // output frame after the last decoded one
  int64_t grain_ = 1;       // output frames that one unit of the samples' times lasts
  bool atEdge_ = true;      // something was left out: what follows stands exactly where it says
};

DecodeOutcome SoftwareAudioDecoder::receive(AudioBlock& block) {
  decoding_.clearError();
  for (;;) {
    const int decoded = piece_.count == 0 ? nextPiece() : 0;
    if (decoded < 0 && decoded != AVERROR_EOF) return decoding_.fail(decoded);
    if (run_.active && (decoded == AVERROR_EOF || !continuesRun())) {
      if (const int result = endRun(block); result < 0) return decoding_.fail(result);
    } else {
      if (decoded == AVERROR_EOF) return DecodeOutcome::End;
      if (const int result = convertPiece(block); result < 0) return decoding_.fail(result);
    }
    if (!block.samples.empty()) return DecodeOutcome::Ok;
  }
}

// Decodes until something is to be heard.
int SoftwareAudioDecoder::nextPiece() {
  while (piece_.count == 0) {
    const int result = decoding_.receive(frame_);
    if (result < 0) return result;
    if (frame_->sample_rate <= 0 || frame_->ch_layout.nb_channels <= 0) return AVERROR_INVALIDDATA;
    // A frame without a number is a further one out of the same packet.
    const SampleTimes::Entry* entry = decoding_.sampleOf(*frame_);
    piece_ = heardPart(entry);
  }
  return 0;
}

Piece SoftwareAudioDecoder::heardPart(const SampleTimes::Entry* entry) {
  if (entry) last_ = *entry;
  const bool timed = entry && CMTIME_IS_NUMERIC(entry->presentation);
  const int64_t position = timed ? outputFrame(entry->presentation) : decodedEnd_;
  if (timed) grain_ = 1 + outputRate_ / entry->presentation.timescale;
  const int64_t total = frame_->nb_samples;
  decodedEnd_ = position + toOutput(total);
  if (entry) skip_ = std::max<int64_t>(skip_, entry->trimStart);
  int64_t first = std::max(skip_, framesUpTo(last_.heardFrom, position, 0));
  skip_ = std::max<int64_t>(0, skip_ - total);
  int64_t end = std::min(total, framesUpTo(last_.heardUntil, position, total));
  if (entry) end = std::min(end, total - entry->trimEnd);
  end = std::max<int64_t>(0, last_.shown ? end : 0);
  first = std::min(first, end);
  if (first > 0 || first == end) atEdge_ = true;
  return {static_cast<int>(first), static_cast<int>(end - first), position + toOutput(first)};
}

int64_t SoftwareAudioDecoder::outputFrame(CMTime time) const {
  return av_rescale(time.value, outputRate_, time.timescale);
}

// Source frames of a frame at `position` that lie before `bound`, or `otherwise` without a bound.
int64_t SoftwareAudioDecoder::framesUpTo(CMTime bound, int64_t position, int64_t otherwise) const {
  if (!CMTIME_IS_NUMERIC(bound)) return otherwise;
  return av_rescale(outputFrame(bound) - position, frame_->sample_rate, outputRate_);
}

int64_t SoftwareAudioDecoder::toOutput(int64_t sourceFrames) const {
  return av_rescale(sourceFrames, outputRate_, frame_->sample_rate);
}

bool SoftwareAudioDecoder::continuesRun() const {
  if (!resampler_.fits(*frame_)) return false;
  const int64_t expected = run_.start + toOutput(run_.consumed);
  const int64_t jitter = atEdge_ ? grain_ : kJitterMilliseconds * outputRate_ / 1000;
  return std::abs(piece_.position - expected) <= jitter;
}

// Gives what the resampler still holds; the next piece starts a new run at its own place.
int SoftwareAudioDecoder::endRun(AudioBlock& block) {
  block.firstFrame = run_.start + run_.given;
  run_ = {};
  return resampler_.finish(block.samples);
}

int SoftwareAudioDecoder::convertPiece(AudioBlock& block) {
  if (!run_.active) {
    if (const int result = resampler_.prepare(*frame_); result < 0) return result;
    run_ = {true, piece_.position, 0, 0};
  }
  const Piece piece = std::exchange(piece_, {});
  // A trimmed end makes an edge for the piece after it, not for itself.
  atEdge_ = piece.first + piece.count < frame_->nb_samples;
  const int result = resampler_.convert(*frame_, piece.first, piece.count, block.samples);
  block.firstFrame = run_.start + run_.given;
  run_.consumed += piece.count;
  run_.given += block.frames();
  return result;
}

void SoftwareAudioDecoder::reset() {
  decoding_.reset();
  piece_ = {};
  run_ = {};
  skip_ = 0;
  atEdge_ = true;
}

}  // namespace

std::unique_ptr<AudioDecoder> AudioDecoder::open(const AVCodecParameters& parameters,
                                                 int outputSampleRate, NSErrorPtr* error) {
  CodecContextPtr context = openCodec(parameters, 1, error);
  if (!context) return nullptr;
  return std::make_unique<SoftwareAudioDecoder>(std::move(context), outputSampleRate);
}

}  // namespace zaffo::media
