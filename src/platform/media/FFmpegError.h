// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/foundation/MakeError.h"

namespace zaffo::media {

/// The domain of underlying errors that FFmpeg gave: the code is its AVERROR, the text its own.
inline constexpr const char* FFmpegErrorDomain = "FFmpegErrorDomain";

/// An error in AVFoundationErrorDomain with a text that a person can act on, over what FFmpeg said:
/// `averror` is a negative AVERROR.
[[nodiscard]] NSErrorPtr makeFFmpegError(AVError code, std::string text, int averror);

}  // namespace zaffo::media
