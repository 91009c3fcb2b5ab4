// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/Export.h"
#include "platform/coremedia/CMTime.h"

namespace zaffo {

/// The bytes of a sample, by reference to what the demuxer read. Immutable. Thread: any.
class ZAFFO_EXPORT CMBlockBuffer {
 public:
  virtual ~CMBlockBuffer() = default;
  /// Valid as long as the block lives.
  [[nodiscard]] virtual std::span<const uint8_t> bytes() const = 0;
};

/// What a decoder of the samples needs to know. Shared by all samples of a run; another object
/// means that the decoder has to be set up anew. Immutable. Thread: any.
class ZAFFO_EXPORT CMFormatDescription {
 public:
  virtual ~CMFormatDescription() = default;
  [[nodiscard]] virtual const std::string& codec() const = 0;  ///< FFmpeg's short name, "h264"
  [[nodiscard]] virtual int width() const = 0;                 ///< coded pixels; 0 for sound
  [[nodiscard]] virtual int height() const = 0;                ///< coded pixels; 0 for sound
};

/// How one sample of a buffer is to be treated.
struct CMSampleAttachments {
  bool displayImmediately = false;  ///< shown as soon as it is decoded, whatever the time is
  bool doNotDisplay = false;        ///< needed to decode others, not to be shown
  bool notSync = false;             ///< decoding cannot start here
};

/// One compressed sample of one track, or a marker without a format description. The data is shared
/// with whoever read it, never copied. Thread: one at a time; reading alone may be done on any.
class ZAFFO_EXPORT CMSampleBuffer {
 public:
  struct Timing {
    CMTime presentation = kCMTimeInvalid;
    CMTime decode = kCMTimeInvalid;
    CMTime duration = kCMTimeInvalid;
  };

  /// A buffer of one sample; of none when `data` is null. `format` is null for a marker.
  [[nodiscard]] static std::shared_ptr<CMSampleBuffer> create(
      std::shared_ptr<const CMBlockBuffer> data, std::shared_ptr<const CMFormatDescription> format,
      Timing timing);

  [[nodiscard]] const std::shared_ptr<const CMBlockBuffer>& dataBuffer() const { return data_; }
  [[nodiscard]] const std::shared_ptr<const CMFormatDescription>& formatDescription() const {
    return format_;
  }
  [[nodiscard]] CMTime presentationTimeStamp() const { return timing_.presentation; }
  [[nodiscard]] CMTime decodeTimeStamp() const { return timing_.decode; }
  [[nodiscard]] CMTime duration() const { return timing_.duration; }
  /// When the sample is to be shown: the presentation time unless another was set.
  [[nodiscard]] CMTime outputPresentationTimeStamp() const {
    return output_.value_or(timing_.presentation);
  }
  void setOutputPresentationTimeStamp(CMTime time) { output_ = time; }

  /// Whether the decoder forgets everything before this buffer.
  [[nodiscard]] bool resetsDecoderBeforeDecoding() const { return resetsDecoder_; }
  void setResetsDecoderBeforeDecoding(bool resets) { resetsDecoder_ = resets; }

  /// One element a sample, changeable in place; owned by the buffer. Null when there is none yet
  /// and `createIfNecessary` is false, and when the buffer has no sample.
  [[nodiscard]] std::vector<CMSampleAttachments>* sampleAttachmentsArray(bool createIfNecessary);
  /// The attachments of the first sample; all false when nothing was attached.
  [[nodiscard]] CMSampleAttachments attachments() const;

 private:
  CMSampleBuffer() = default;

  std::shared_ptr<const CMBlockBuffer> data_;
  std::shared_ptr<const CMFormatDescription> format_;
  Timing timing_;
  std::optional<CMTime> output_;
  bool resetsDecoder_ = false;
  std::optional<std::vector<CMSampleAttachments>> attachments_;
};

}  // namespace zaffo
