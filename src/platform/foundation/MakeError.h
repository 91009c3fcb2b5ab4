// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <utility>

#include "platform/foundation/AVError.h"
#include "platform/foundation/NSError.h"

namespace zaffo {

/// The domain of underlying operating-system errors, whose code is errno.
inline constexpr const char* NSPOSIXErrorDomain = "NSPOSIXErrorDomain";

/// An error in AVFoundationErrorDomain with a text that a person can act on.
[[nodiscard]] NSErrorPtr makeError(AVError code, std::string text, NSErrorPtr underlying = nullptr);
/// The same, on top of the operating system's error: `number` is an errno.
[[nodiscard]] NSErrorPtr makePosixError(AVError code, std::string text, int number);

/// That the content is encrypted, which nothing here can undo.
[[nodiscard]] NSErrorPtr contentIsProtected();

/// Stores `value` when `error` is not null.
inline void setError(NSErrorPtr* error, NSErrorPtr value) {
  if (error) *error = std::move(value);
}

}  // namespace zaffo
