// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include "platform/Export.h"

namespace zaffo {

/// Key of the text that a person can act on, in NSError::userInfo.
inline constexpr const char* NSLocalizedDescriptionKey = "NSLocalizedDescription";

class NSError;
using NSErrorPtr = std::shared_ptr<const NSError>;

/// Why an operation failed: a domain that names who reports it, a code within that, and texts by
/// key. Immutable and shared; a null pointer is success. Thread: any.
class ZAFFO_EXPORT NSError {
 public:
  using UserInfo = std::map<std::string, std::string>;

  NSError(std::string domain, long code, UserInfo userInfo = {},
          NSErrorPtr underlyingError = nullptr);

  [[nodiscard]] static NSErrorPtr create(std::string domain, long code, UserInfo userInfo = {},
                                         NSErrorPtr underlyingError = nullptr);

  [[nodiscard]] const std::string& domain() const { return domain_; }
  [[nodiscard]] long code() const { return code_; }
  [[nodiscard]] const UserInfo& userInfo() const { return userInfo_; }
  [[nodiscard]] const NSErrorPtr& underlyingError() const { return underlyingError_; }

  /// The text under NSLocalizedDescriptionKey, or "The operation couldn't be completed. (domain
  /// error code.)" when there is none.
  [[nodiscard]] std::string localizedDescription() const;

  /// For a log: 'Error Domain=com.zaffoapp.co Code=500 "No player available for this video"'.
  [[nodiscard]] std::string description() const;

 private:
  std::string domain_;
  long code_;
  UserInfo userInfo_;
  NSErrorPtr underlyingError_;
};

/// What a platform operation raises when it is misused (an item made of no asset, say).
class ZAFFO_EXPORT NSErrorException : public std::runtime_error {
 public:
  explicit NSErrorException(NSErrorPtr error);
  [[nodiscard]] const NSErrorPtr& error() const { return error_; }

 private:
  NSErrorPtr error_;
};

}  // namespace zaffo
