// SPDX-License-Identifier: Apache-2.0
#include "platform/FatalError.h"

#include <cstdio>
#include <cstdlib>

namespace zaffo {

void fatalError(std::string_view message) {
  std::fprintf(stderr, "%.*s\n", static_cast<int>(message.size()), message.data());
  std::abort();
}

}  // namespace zaffo
