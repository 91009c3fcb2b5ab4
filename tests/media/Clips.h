// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <set>
#include <string>

namespace zaffo::test {

/// `path`, whose bytes the system then has in memory: nothing that reads them has to wait, so that
/// a test need not.
inline std::string held(const std::string& path) {
  static std::mutex mutex;
  static std::set<std::string> paths;
  const std::lock_guard lock(mutex);
  if (!paths.insert(path).second) return path;
  std::ifstream file(path, std::ios::binary);
  std::string piece(1 << 16, '\0');
  while (file.read(piece.data(), static_cast<std::streamsize>(piece.size()))) {
  }
  return path;
}

/// The path of a clip that tests/media/make-clips makes, which lists them with what each is for.
///
/// Unless its entry says otherwise a clip lasts 2 s, has 192x108 pixels at 30 frames a second, a
/// key frame each second, and a picture whose number (FrameNumber.h) counts from 0. In second s its
/// sound is a tone of 300 + 100 s Hz, at amplitude 0.5 on the left and 0.25 on the right.
/// Those whose names begin with "loop_" are made by tests/media/make-loop-clips.
[[nodiscard]] inline std::string clip(const std::string& name) {
  return held(std::string(ZAFFO_TEST_CLIPS) + "/" + name);
}

/// The path of a clip that somebody else made, or nothing where those are not at hand: skip then.
[[nodiscard]] inline std::optional<std::string> realClip(const std::string& name) {
  const std::string path = std::string(ZAFFO_REAL_CLIPS) + "/" + name;
  if (!std::filesystem::exists(path)) return std::nullopt;
  return held(path);
}

/// The frequency of the sound of a test clip in whole second `second`, in Hz.
[[nodiscard]] constexpr double toneOfSecond(int second) {
  return 300.0 + 100.0 * second;
}

}  // namespace zaffo::test
