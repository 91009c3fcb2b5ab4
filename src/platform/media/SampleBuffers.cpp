#include "platform/media/SampleBuffers.h"

#include <algorithm>
#include <utility>

namespace zaffo::media {
namespace {

class PacketBlock final : public CMBlockBuffer {
 public:
  explicit PacketBlock(PacketPtr packet) : packet_(std::move(packet)) {}

  [[nodiscard]] std::span<const uint8_t> bytes() const override {
    return {packet_->data, static_cast<std::size_t>(packet_->size)};
  }
  [[nodiscard]] const AVPacket& packet() const { return *packet_; }

 private:
  const PacketPtr packet_;
};

class CodecDescription final : public CMFormatDescription {
 public:
  CodecDescription(CodecParametersPtr parameters, CGAffineTransform preferredTransform)
      : parameters_(std::move(parameters)),
        preferredTransform_(preferredTransform),
        codec_(avcodec_get_name(parameters_->codec_id)) {}

  [[nodiscard]] const std::string& codec() const override { return codec_; }
  [[nodiscard]] int width() const override { return parameters_->width; }
  [[nodiscard]] int height() const override { return parameters_->height; }
  [[nodiscard]] const AVCodecParameters& parameters() const { return *parameters_; }
  [[nodiscard]] CGAffineTransform preferredTransform() const { return preferredTransform_; }

 private:
  const CodecParametersPtr parameters_;
  const CGAffineTransform preferredTransform_;
  const std::string codec_;
};

std::span<const uint8_t> extradata(const AVCodecParameters& p) {
  return {p.extradata, static_cast<std::size_t>(std::max(0, p.extradata_size))};
}

bool isSameSampleAspect(AVRational a, AVRational b) {
  return a.num == b.num && a.den == b.den;
}

}  // namespace

std::shared_ptr<const CMFormatDescription> makeFormatDescription(
    const AVCodecParameters& parameters, CGAffineTransform preferredTransform) {
  CodecParametersPtr copied(avcodec_parameters_alloc());
  if (!copied || avcodec_parameters_copy(copied.get(), &parameters) < 0) return nullptr;
  return std::make_shared<const CodecDescription>(std::move(copied), preferredTransform);
}

const AVCodecParameters* codecParametersOf(const CMFormatDescription& format) {
  const auto* description = dynamic_cast<const CodecDescription*>(&format);
  return description ? &description->parameters() : nullptr;
}

CGAffineTransform preferredTransformOf(const CMFormatDescription& format) {
  const auto* description = dynamic_cast<const CodecDescription*>(&format);
  return description ? description->preferredTransform() : CGAffineTransformIdentity;
}

bool isSameFormat(const AVCodecParameters& a, const AVCodecParameters& b) {
  return a.codec_type == b.codec_type && a.codec_id == b.codec_id && a.codec_tag == b.codec_tag &&
         a.format == b.format && a.profile == b.profile && a.width == b.width &&
         a.height == b.height && a.sample_rate == b.sample_rate && a.color_range == b.color_range &&
         a.color_space == b.color_space && a.color_primaries == b.color_primaries &&
         a.color_trc == b.color_trc &&
         isSameSampleAspect(a.sample_aspect_ratio, b.sample_aspect_ratio) &&
         std::ranges::equal(extradata(a), extradata(b));
}

std::shared_ptr<CMSampleBuffer> makeSampleBuffer(
    Sample sample, std::shared_ptr<const CMFormatDescription> format) {
  const auto buffer = CMSampleBuffer::create(
      std::make_shared<const PacketBlock>(std::move(sample.packet)), std::move(format),
      {sample.presentation, sample.decode, sample.duration});
  buffer->setResetsDecoderBeforeDecoding(sample.isDiscontinuity);
  if (!sample.sync || sample.decodeOnly) {
    CMSampleAttachments& attachments = buffer->sampleAttachmentsArray(true)->front();
    attachments.notSync = !sample.sync;
    attachments.doNotDisplay = sample.decodeOnly;
  }
  return buffer;
}

bool takeOwnBytes(Sample& sample) {
  return av_packet_make_writable(sample.packet.get()) >= 0;
}

bool sampleFromBuffer(const CMSampleBuffer& buffer, Sample& sample) {
  const auto* block = dynamic_cast<const PacketBlock*>(buffer.dataBuffer().get());
  if (!block) return false;
  if (!sample.packet) sample.packet.reset(av_packet_alloc());
  if (!sample.packet) return false;
  av_packet_unref(sample.packet.get());
  if (av_packet_ref(sample.packet.get(), &block->packet()) < 0) return false;
  const CMSampleAttachments attachments = buffer.attachments();
  sample.presentation = buffer.outputPresentationTimeStamp();
  sample.decode = buffer.decodeTimeStamp();
  sample.duration = buffer.duration();
  sample.sync = !attachments.notSync;
  sample.decodeOnly = attachments.doNotDisplay;
  sample.isDiscontinuity = buffer.resetsDecoderBeforeDecoding();
  sample.heardFrom = sample.heardUntil = kCMTimeInvalid;
  return true;
}

}  // namespace zaffo::media
