// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/coremedia/CMSampleBuffer.h"
#include "platform/media/CodecConfig.h"
#include "platform/media/Sample.h"
#include "platform/uikit/Geometry.h"

namespace zaffo::media {

/// Compressed samples as they travel through the public interface, and back: by reference both
/// ways, the bytes stay those that the demuxer read. Thread: any.

/// A description that keeps a copy of `parameters`, and how the track is turned to be upright; null
/// when out of memory.
[[nodiscard]] std::shared_ptr<const CMFormatDescription> makeFormatDescription(
    const AVCodecParameters& parameters, CGAffineTransform preferredTransform = {});

/// How pictures are turned to be upright; identity when the description was not made here.
[[nodiscard]] CGAffineTransform preferredTransformOf(const CMFormatDescription& format);

/// What a description says of the codec, owned by it; null when it was not made here.
[[nodiscard]] const CodecConfig* codecConfigOf(const CMFormatDescription& format);
/// The parameters in that; null when there is none.
[[nodiscard]] const AVCodecParameters* codecParametersOf(const CMFormatDescription& format);

/// Takes the sample's packet and says the rest in times and attachments: not sync, do not display,
/// reset the decoder (of a sample that starts anew). The bounds of what is heard are left behind.
[[nodiscard]] std::shared_ptr<CMSampleBuffer> makeSampleBuffer(
    Sample sample, std::shared_ptr<const CMFormatDescription> format);

/// Copies the bytes of a sample if anything else refers to them. False when out of memory.
[[nodiscard]] bool takeOwnBytes(Sample& sample);

/// The way back: `sample` refers to the buffer's bytes, which stay when the buffer goes, and is
/// presented at the buffer's output time. A packet that `sample` has already is used again. False
/// when the buffer holds no data that was made here, or out of memory.
[[nodiscard]] bool sampleFromBuffer(const CMSampleBuffer& buffer, Sample& sample);

}  // namespace zaffo::media
