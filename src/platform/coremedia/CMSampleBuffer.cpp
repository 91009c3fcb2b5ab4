// SPDX-License-Identifier: Apache-2.0
#include "platform/coremedia/CMSampleBuffer.h"

#include <utility>

namespace zaffo {

std::shared_ptr<CMSampleBuffer> CMSampleBuffer::create(
    std::shared_ptr<const CMBlockBuffer> data, std::shared_ptr<const CMFormatDescription> format,
    Timing timing) {
  const std::shared_ptr<CMSampleBuffer> buffer(new CMSampleBuffer);
  buffer->data_ = std::move(data);
  buffer->format_ = std::move(format);
  buffer->timing_ = timing;
  return buffer;
}

std::vector<CMSampleAttachments>* CMSampleBuffer::sampleAttachmentsArray(bool createIfNecessary) {
  if (!attachments_ && createIfNecessary && data_) attachments_.emplace(1);
  return attachments_ ? &*attachments_ : nullptr;
}

CMSampleAttachments CMSampleBuffer::attachments() const {
  return attachments_ ? attachments_->front() : CMSampleAttachments{};
}

}  // namespace zaffo
