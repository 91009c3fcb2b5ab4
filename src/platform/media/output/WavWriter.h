// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>

#include "platform/foundation/Result.h"

namespace zaffo::media {

/// Writes a WAV file of 32-bit float stereo that is whole after every flush(): its sizes are those
/// of what has been written so far, so that a program that ends abruptly leaves a file that plays.
/// Past 4 GiB the file turns into RF64 in place. Thread: one at a time, one that may wait for the
/// disk.
class WavWriter {
 public:
  /// Above this many bytes of sound the file becomes RF64.
  static constexpr uint64_t kLargestRiff = 0xffffffffull - 128;

  /// Creates or replaces the file at `path`. Fails with an error in NSPOSIXErrorDomain.
  static Result<std::unique_ptr<WavWriter>> create(const std::string& path, int sampleRate,
                                                   uint64_t largestRiff = kLargestRiff);
  ~WavWriter();  ///< completes the file

  /// Appends interleaved stereo. After a failure (a full disk) nothing more is written.
  void append(std::span<const float> interleaved);
  void appendSilence(int64_t frames);
  /// Brings the sizes up to date and everything to the system.
  void flush();

  [[nodiscard]] int64_t frames() const { return frames_; }
  [[nodiscard]] bool failed() const { return failed_; }

 private:
  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  WavWriter(std::FILE* file, int sampleRate, uint64_t largestRiff);
  void writeHeader();

  const std::unique_ptr<std::FILE, Close> file_;
  const int sampleRate_;
  const uint64_t largestRiff_;
  int64_t frames_ = 0;
  bool failed_ = false;
};

}  // namespace zaffo::media
