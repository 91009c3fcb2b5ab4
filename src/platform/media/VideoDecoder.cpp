#include "platform/media/VideoDecoder.h"

#include <algorithm>
#include <thread>

#include "platform/media/CodecContext.h"
#include "platform/media/DecodeQueue.h"
#include "platform/media/PixelBuffers.h"
#include "platform/media/SampleTimes.h"

namespace zaffo::media {
namespace {

// One thread decodes 1080p30 with room to spare; above that a picture may take more than its time.
int threadCount(const AVCodecParameters& parameters) {
  constexpr int64_t kOneThreadPixels = int64_t{1920} * 1088;
  if (int64_t{parameters.width} * parameters.height <= kOneThreadPixels) return 1;
  return static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1u, 4u));
}

class SoftwareVideoDecoder : public VideoDecoder {
 public:
  SoftwareVideoDecoder(const AVCodecParameters& parameters, CodecContextPtr context)
      : queue_(std::move(context)), buffers_(parameters), packet_(av_packet_alloc()) {}

  DecodeOutcome send(const Sample& sample) override;
  DecodeOutcome receive(VideoFrame& frame) override;
  void drain() override { queue_.drain(); }
  void reset() override;
  void setSkipsUnreferencedFrames(bool skips) override {
    queue_.context().skip_frame = skips ? AVDISCARD_NONREF : AVDISCARD_DEFAULT;
  }
  NSErrorPtr error() const override { return error_; }

 private:
  DecodeOutcome fail(int averror);

  DecodeQueue queue_;
  PixelBuffers buffers_;
  SampleTimes times_;
  PacketPtr packet_;
  FramePtr frame_;
  NSErrorPtr error_;
};

DecodeOutcome SoftwareVideoDecoder::fail(int averror) {
  if (averror == AVERROR(EAGAIN)) return DecodeOutcome::Again;
  if (averror == AVERROR_EOF) return DecodeOutcome::End;
  error_ = makeFFmpegError(AVErrorDecodeFailed, "The picture cannot be decoded.", averror);
  return DecodeOutcome::Error;
}

DecodeOutcome SoftwareVideoDecoder::send(const Sample& sample) {
  error_ = nullptr;
  if (const int result = av_packet_ref(packet_.get(), sample.packet.get()); result < 0) {
    return fail(result);
  }
  packet_->pts = packet_->dts = times_.remember(sample);
  // Samples that are not shown are told by number: a decoder that drops them could not know that
  // a composition shows what the file hides.
  packet_->flags &= ~AV_PKT_FLAG_DISCARD;
  const int result = queue_.send(*packet_);
  av_packet_unref(packet_.get());
  if (result == AVERROR(EAGAIN)) times_.forgetLast();
  return result >= 0 ? DecodeOutcome::Ok : fail(result);
}

DecodeOutcome SoftwareVideoDecoder::receive(VideoFrame& frame) {
  error_ = nullptr;
  for (;;) {
    const int result = queue_.receive(frame_);
    if (result < 0) return fail(result);
    const SampleTimes::Entry* entry = times_.find(frame_->pts);
    if (!entry || !entry->shown || !CMTIME_IS_NUMERIC(entry->presentation)) continue;
    frame.presentation = entry->presentation;
    frame.duration = entry->duration;
    frame.buffer = buffers_.wrap(std::move(frame_));
    return frame.buffer ? DecodeOutcome::Ok : fail(AVERROR(ENOMEM));
  }
}

void SoftwareVideoDecoder::reset() {
  queue_.flush();
  error_ = nullptr;
}

}  // namespace

std::unique_ptr<VideoDecoder> VideoDecoder::open(const AVCodecParameters& parameters,
                                                 NSErrorPtr* error) {
  CodecContextPtr context = openCodec(parameters, threadCount(parameters), error);
  if (!context) return nullptr;
  return std::make_unique<SoftwareVideoDecoder>(parameters, std::move(context));
}

}  // namespace zaffo::media
