// SPDX-License-Identifier: Apache-2.0
#include "platform/network/NetworkError.h"

#include <utility>

namespace zaffo::network {

NSErrorPtr networkError(URLError code, std::string text, NSErrorPtr underlying) {
  return NSError::create(NSURLErrorDomain, code, {{NSLocalizedDescriptionKey, std::move(text)}},
                         std::move(underlying));
}

}  // namespace zaffo::network
