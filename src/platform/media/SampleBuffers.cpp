// SPDX-License-Identifier: Apache-2.0
#include "platform/media/SampleBuffers.h"

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
  CodecDescription(CodecConfig config, CGAffineTransform preferredTransform)
      : config_(std::move(config)),
        preferredTransform_(preferredTransform),
        codec_(avcodec_get_name(config_.parameters()->codec_id)) {}

  [[nodiscard]] const std::string& codec() const override { return codec_; }
  [[nodiscard]] int width() const override { return config_.parameters()->width; }
  [[nodiscard]] int height() const override { return config_.parameters()->height; }
  [[nodiscard]] const CodecConfig& config() const { return config_; }
  [[nodiscard]] CGAffineTransform preferredTransform() const { return preferredTransform_; }

 private:
  const CodecConfig config_;
  const CGAffineTransform preferredTransform_;
  const std::string codec_;
};

}  // namespace

std::shared_ptr<const CMFormatDescription> makeFormatDescription(
    const AVCodecParameters& parameters, CGAffineTransform preferredTransform) {
  CodecConfig config(parameters);
  if (!config.parameters()) return nullptr;
  return std::make_shared<const CodecDescription>(std::move(config), preferredTransform);
}

const CodecConfig* codecConfigOf(const CMFormatDescription& format) {
  const auto* description = dynamic_cast<const CodecDescription*>(&format);
  return description ? &description->config() : nullptr;
}

const AVCodecParameters* codecParametersOf(const CMFormatDescription& format) {
  const CodecConfig* config = codecConfigOf(format);
  return config ? config->parameters() : nullptr;
}

CGAffineTransform preferredTransformOf(const CMFormatDescription& format) {
  const auto* description = dynamic_cast<const CodecDescription*>(&format);
  return description ? description->preferredTransform() : CGAffineTransformIdentity;
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
