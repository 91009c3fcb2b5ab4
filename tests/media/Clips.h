#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace zaffo::test {

/// The path of a clip that tests/media/make-clips makes, which lists them with what each is for.
///
/// Unless its entry says otherwise a clip lasts 2 s, has 192x108 pixels at 30 frames a second, a
/// key frame each second, and a picture whose number (FrameNumber.h) counts from 0. In second s its
/// sound is a tone of 300 + 100 s Hz, at amplitude 0.5 on the left and 0.25 on the right.
/// Those whose names begin with "loop_" are made by tests/media/make-loop-clips.
[[nodiscard]] inline std::string clip(const std::string& name) {
  return std::string(ZAFFO_TEST_CLIPS) + "/" + name;
}

/// The path of a clip that somebody else made, or nothing where those are not at hand: skip then.
[[nodiscard]] inline std::optional<std::string> realClip(const std::string& name) {
  const std::string path = std::string(ZAFFO_REAL_CLIPS) + "/" + name;
  if (!std::filesystem::exists(path)) return std::nullopt;
  return path;
}

/// The frequency of the sound of a test clip in whole second `second`, in Hz.
[[nodiscard]] constexpr double toneOfSecond(int second) {
  return 300.0 + 100.0 * second;
}

}  // namespace zaffo::test
