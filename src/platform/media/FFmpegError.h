#pragma once

#include <memory>
#include <string>

#include "platform/AVError.h"
#include "platform/foundation/NSError.h"

namespace zaffo::media {

using NSErrorPtr = std::shared_ptr<const NSError>;

/// The domain of underlying errors that FFmpeg gave: the code is its AVERROR, the text its own.
inline constexpr const char* FFmpegErrorDomain = "FFmpegErrorDomain";
/// The domain of underlying errors of the operating system: the code is errno.
inline constexpr const char* NSPOSIXErrorDomain = "NSPOSIXErrorDomain";

/// An error in AVFoundationErrorDomain with a text that a person can act on.
[[nodiscard]] NSErrorPtr makeError(AVError code, std::string text, NSErrorPtr underlying = nullptr);
/// The same, over what FFmpeg said: `averror` is a negative AVERROR.
[[nodiscard]] NSErrorPtr makeFFmpegError(AVError code, std::string text, int averror);
/// The same, over what the operating system said.
[[nodiscard]] NSErrorPtr makePosixError(AVError code, std::string text, int number);

/// That the content is encrypted, which nothing here can undo.
[[nodiscard]] NSErrorPtr contentIsProtected();

/// Stores `value` when `error` is not null.
inline void setError(NSErrorPtr* error, NSErrorPtr value) {
  if (error) *error = std::move(value);
}

}  // namespace zaffo::media
