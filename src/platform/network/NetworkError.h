// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/foundation/NSError.h"

namespace zaffo::network {

/// The domain of errors that a network or a server is the cause of.
inline constexpr const char* NSURLErrorDomain = "NSURLErrorDomain";

/// The codes within NSURLErrorDomain that are used here, with the platform's numbers.
enum URLError : long {
  NSURLErrorTimedOut = -1001,
  NSURLErrorUnsupportedURL = -1002,
  NSURLErrorCannotFindHost = -1003,
  NSURLErrorCannotConnectToHost = -1004,
  NSURLErrorNetworkConnectionLost = -1005,
  NSURLErrorHTTPTooManyRedirects = -1007,
  NSURLErrorResourceUnavailable = -1008,
  NSURLErrorBadServerResponse = -1011,
  NSURLErrorUserAuthenticationRequired = -1013,
  NSURLErrorCannotDecodeRawData = -1015,
  NSURLErrorFileDoesNotExist = -1100,
  NSURLErrorNoPermissionsToReadFile = -1102,
  NSURLErrorDataLengthExceedsMaximum = -1103,
  NSURLErrorSecureConnectionFailed = -1200,
  NSURLErrorServerCertificateUntrusted = -1202,
};

/// An error in NSURLErrorDomain with a text that a person can act on.
[[nodiscard]] NSErrorPtr networkError(URLError code, std::string text,
                                      NSErrorPtr underlying = nullptr);

}  // namespace zaffo::network
