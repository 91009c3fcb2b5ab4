// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <sstream>
#include <string>

namespace zaffo {

/// Keeps what sessions and players tell of themselves off standard output while it lives; all else,
/// failures of the test above all, comes out when it goes.
class QuietTrace {
 public:
  QuietTrace() { testing::internal::CaptureStdout(); }
  ~QuietTrace() {
    std::istringstream text(testing::internal::GetCapturedStdout());
    for (std::string line; std::getline(text, line);) {
      if (!isTrace(line)) std::printf("%s\n", line.c_str());
    }
    std::fflush(stdout);
  }
  QuietTrace(const QuietTrace&) = delete;
  QuietTrace& operator=(const QuietTrace&) = delete;

 private:
  /// "12 - Reading buffers", or a player's line about a failure.
  [[nodiscard]] static bool isTrace(const std::string& line) {
    if (line.starts_with("PlayerFast: Error with PlaybackSession (")) return true;
    std::size_t digits = 0;
    while (digits < line.size() && std::isdigit(static_cast<unsigned char>(line[digits]))) ++digits;
    return digits > 0 && line.compare(digits, 3, " - ") == 0;
  }
};

}  // namespace zaffo
