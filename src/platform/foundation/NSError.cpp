// SPDX-License-Identifier: Apache-2.0
#include "platform/foundation/NSError.h"

#include <utility>

namespace zaffo {

NSError::NSError(std::string domain, long code, UserInfo userInfo, NSErrorPtr underlyingError)
    : domain_(std::move(domain)),
      code_(code),
      userInfo_(std::move(userInfo)),
      underlyingError_(std::move(underlyingError)) {}

NSErrorPtr NSError::create(std::string domain, long code, UserInfo userInfo,
                           NSErrorPtr underlyingError) {
  return std::make_shared<const NSError>(std::move(domain), code, std::move(userInfo),
                                         std::move(underlyingError));
}

std::string NSError::localizedDescription() const {
  const auto text = userInfo_.find(NSLocalizedDescriptionKey);
  if (text != userInfo_.end()) return text->second;
  return "The operation couldn't be completed. (" + domain_ + " error " + std::to_string(code_) +
         ".)";
}

std::string NSError::description() const {
  return "Error Domain=" + domain_ + " Code=" + std::to_string(code_) + " \"" +
         localizedDescription() + "\"";
}

namespace {
std::string descriptionOf(const NSErrorPtr& error) {
  return error ? error->localizedDescription()
               : std::string("The operation couldn't be completed.");
}
}  // namespace

NSErrorException::NSErrorException(NSErrorPtr error)
    : std::runtime_error(descriptionOf(error)), error_(std::move(error)) {}

}  // namespace zaffo
