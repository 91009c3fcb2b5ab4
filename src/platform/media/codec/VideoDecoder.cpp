// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/VideoDecoder.h"

#include <thread>
#include <utility>

#include "platform/media/CodecConfig.h"
#include "platform/media/codec/CodecContext.h"
#include "platform/media/codec/DecoderThreads.h"
#include "platform/media/codec/PixelBuffers.h"
#include "platform/media/codec/SampleDecoding.h"

namespace zaffo::media {
namespace {

/// `frameDuration` is invalid while it is not known.
int threadCount(const AVCodecParameters& parameters, CMTime frameDuration = kCMTimeInvalid) {
  const double seconds = CMTIME_IS_NUMERIC(frameDuration) ? CMTimeGetSeconds(frameDuration) : 0;
  const double rate = seconds > 0 ? 1 / seconds : 0;
  return decoderThreads({parameters.width, parameters.height, rate},
                        std::thread::hardware_concurrency());
}

class SoftwareVideoDecoder : public VideoDecoder {
 public:
  SoftwareVideoDecoder(const AVCodecParameters& parameters, CodecContextPtr context)
      : decoding_(std::move(context), "The picture cannot be decoded."),
        config_(parameters),
        buffers_(std::make_unique<PixelBuffers>(parameters)) {}

  Outcome send(const Sample& sample) override;
  bool adoptParameters(const AVCodecParameters& parameters) override;
  Outcome receive(VideoFrame& frame) override;
  void drain() override { decoding_.drain(); }
  void reset() override;
  void holdBackBefore(CMTime time) override { holdBackBefore_ = time; }
  CMTime heldBack() const override { return heldBackTimes_.presentation; }
  Outcome receiveHeldBack(VideoFrame& frame) override;
  void forgetHeldBack() override;
  void setSkipsUnreferencedFrames(bool skips) override { skips_ = skips; }
  NSErrorPtr error() const override { return refusal_ ? refusal_ : decoding_.error(); }

 private:
  void noteRate(const Sample& sample);
  void noteStart(const Sample& sample);
  [[nodiscard]] bool isBroken(const SampleTimes::Entry& times) const;
  [[nodiscard]] bool isEarly(CMTime presentation) const {
    return CMTIME_IS_VALID(holdBackBefore_) && presentation < holdBackBefore_;
  }
  Outcome give(const SampleTimes::Entry& times, FramePtr decoded, VideoFrame& frame);

  SampleDecoding decoding_;
  CodecConfig config_;
  std::unique_ptr<PixelBuffers> buffers_;
  std::unique_ptr<PixelBuffers> formerBuffers_;  // of the codec before this one
  int64_t firstOfCodec_ = 0;                     // number of the first sample sent to this one
  bool knowsRate_ = false;                       // of the frames, as this codec's samples tell it
  bool skips_ = false;
  CMTime startPresentation_;  // of the sync sample that decoding last began with
  int64_t startNumber_ = 0;
  NSErrorPtr refusal_;  // why there is no codec for the samples that come
  FramePtr frame_;
  CMTime holdBackBefore_ = kCMTimeInvalid;
  FramePtr heldBack_;
  SampleTimes::Entry heldBackTimes_;
};

Outcome SoftwareVideoDecoder::send(const Sample& sample) {
  if (refusal_) return Outcome::Error;
  noteRate(sample);
  decoding_.context().skip_frame =
      skips_ || sample.decodeOnly ? AVDISCARD_NONREF : AVDISCARD_DEFAULT;
  noteStart(sample);
  return decoding_.send(sample);
}

// Only samples tell the rate. A codec that has too few threads for it makes way while it is empty.
void SoftwareVideoDecoder::noteRate(const Sample& sample) {
  if (std::exchange(knowsRate_, true)) return;
  const AVCodecParameters* parameters = config_.parameters();
  if (!parameters) return;
  const int threads = threadCount(*parameters, sample.duration);
  if (threads <= decoding_.context().thread_count) return;
  if (auto context = openCodec(*parameters, threads)) {
    decoding_.startAnewWith(*std::move(context));
  }
}

void SoftwareVideoDecoder::noteStart(const Sample& sample) {
  if (sample.isDiscontinuity) startPresentation_ = kCMTimeInvalid;
  if (!sample.sync || CMTIME_IS_VALID(startPresentation_)) return;
  startPresentation_ = sample.presentation;
  startNumber_ = decoding_.nextNumber();
}

// What an H.264 stream shows before the sync sample and decodes after it leans on what was not
// decoded. The decoder keeps it to itself, except when it is drained.
bool SoftwareVideoDecoder::isBroken(const SampleTimes::Entry& times) const {
  return decoding_.codecID() == AV_CODEC_ID_H264 && CMTIME_IS_NUMERIC(startPresentation_) &&
         times.number >= startNumber_ && times.presentation < startPresentation_;
}

bool SoftwareVideoDecoder::adoptParameters(const AVCodecParameters& parameters) {
  refusal_ = nullptr;
  if (config_ == parameters) return true;
  auto context = openCodec(parameters, threadCount(parameters));
  refusal_ = context.error();
  if (!context) return false;
  decoding_.startAnewWith(*std::move(context));
  formerBuffers_ = std::move(buffers_);
  firstOfCodec_ = decoding_.nextNumber();
  knowsRate_ = false;
  config_ = CodecConfig(parameters);
  buffers_ = std::make_unique<PixelBuffers>(parameters);
  return true;
}

Outcome SoftwareVideoDecoder::receive(VideoFrame& frame) {
  decoding_.clearError();
  for (;;) {
    const int result = decoding_.receive(frame_);
    if (result < 0) return decoding_.fail(result);
    const SampleTimes::Entry* entry = decoding_.sampleOf(*frame_);
    if (!entry || entry->decodeOnly || !CMTIME_IS_NUMERIC(entry->presentation)) continue;
    if (isBroken(*entry)) continue;
    if (!isEarly(entry->presentation)) return give(*entry, std::move(frame_), frame);
    std::swap(heldBack_, frame_);
    heldBackTimes_ = *entry;
  }
}

Outcome SoftwareVideoDecoder::give(const SampleTimes::Entry& times, FramePtr decoded,
                                   VideoFrame& frame) {
  frame.presentation = times.presentation;
  frame.duration = times.duration;
  PixelBuffers& buffers = times.number < firstOfCodec_ ? *formerBuffers_ : *buffers_;
  frame.buffer = buffers.wrap(std::move(decoded));
  return frame.buffer ? Outcome::Ready : decoding_.fail(AVERROR(ENOMEM));
}

Outcome SoftwareVideoDecoder::receiveHeldBack(VideoFrame& frame) {
  if (!heldBack_) return Outcome::Again;
  const Outcome outcome = give(heldBackTimes_, std::move(heldBack_), frame);
  forgetHeldBack();
  return outcome;
}

void SoftwareVideoDecoder::forgetHeldBack() {
  heldBack_.reset();
  heldBackTimes_ = {};
}

void SoftwareVideoDecoder::reset() {
  decoding_.reset();
  startPresentation_ = kCMTimeInvalid;
  forgetHeldBack();
}

}  // namespace

Result<std::unique_ptr<VideoDecoder>> VideoDecoder::open(const AVCodecParameters& parameters) {
  auto context = openCodec(parameters, threadCount(parameters));
  if (!context) return context.error();
  return std::make_unique<SoftwareVideoDecoder>(parameters, *std::move(context));
}

}  // namespace zaffo::media
