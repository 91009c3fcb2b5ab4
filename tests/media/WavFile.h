// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace zaffo::test {

/// The left channel of a 32-bit float stereo WAV file.
struct WavFile {
  uint32_t rate = 0;
  std::vector<float> left;
};

namespace detail {
template <typename Number>
Number numberAt(const std::string& bytes, std::size_t offset) {
  Number number{};
  if (offset + sizeof number <= bytes.size())
    std::memcpy(&number, bytes.data() + offset, sizeof number);
  return number;
}
}  // namespace detail

[[nodiscard]] inline WavFile parseWav(const std::string& bytes) {
  WavFile wav;
  for (std::size_t at = 12; at + 8 <= bytes.size();) {
    const std::string kind = bytes.substr(at, 4);
    const auto size = detail::numberAt<uint32_t>(bytes, at + 4);
    if (kind == "fmt ") wav.rate = detail::numberAt<uint32_t>(bytes, at + 12);
    if (kind == "data") {
      for (std::size_t i = at + 8; i + 8 <= std::min(at + 8 + size, bytes.size()); i += 8)
        wav.left.push_back(detail::numberAt<float>(bytes, i));
    }
    at += 8 + size + size % 2;
  }
  return wav;
}

[[nodiscard]] inline WavFile readWav(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return parseWav(std::string(std::istreambuf_iterator<char>(stream), {}));
}

}  // namespace zaffo::test
