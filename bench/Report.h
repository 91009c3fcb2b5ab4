// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <cstdarg>
#include <cstdio>

/// The program's standard output, for its figures alone: what the library says there (a fast
/// player's session traces each sample) goes nowhere from now on. Thread: main, one of these.
class Report {
 public:
  Report() : output_(fdopen(dup(STDOUT_FILENO), "w")) {
    if (!output_ || !std::freopen("/dev/null", "w", stdout)) std::perror("bench");
  }
  ~Report() {
    if (output_) std::fclose(output_);
  }
  Report(const Report&) = delete;
  Report& operator=(const Report&) = delete;

  [[gnu::format(printf, 2, 3)]] void print(const char* format, ...) const {
    va_list arguments;
    va_start(arguments, format);
    if (output_) std::vfprintf(output_, format, arguments);
    va_end(arguments);
  }

 private:
  std::FILE* const output_;
};
