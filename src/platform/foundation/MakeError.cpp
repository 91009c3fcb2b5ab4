// SPDX-License-Identifier: Apache-2.0
#include "platform/foundation/MakeError.h"

#include <system_error>

namespace zaffo {

NSErrorPtr makeError(AVError code, std::string text, NSErrorPtr underlying) {
  return NSError::create(AVFoundationErrorDomain, code,
                         {{NSLocalizedDescriptionKey, std::move(text)}}, std::move(underlying));
}

NSErrorPtr makePosixError(AVError code, std::string text, int number) {
  return makeError(
      code, std::move(text),
      NSError::create(NSPOSIXErrorDomain, number,
                      {{NSLocalizedDescriptionKey, std::generic_category().message(number)}}));
}

NSErrorPtr contentIsProtected() {
  return makeError(AVErrorContentIsProtected, "The video is protected by encryption.");
}

}  // namespace zaffo
