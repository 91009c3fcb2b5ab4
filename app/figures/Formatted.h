// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

namespace zaffo::feed {

/// A line as printf would print it, of 255 characters at most.
[[gnu::format(printf, 1, 2)]] inline std::string formatted(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  char line[256];
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  return line;
}

}  // namespace zaffo::feed
