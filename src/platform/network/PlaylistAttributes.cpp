// SPDX-License-Identifier: Apache-2.0
#include "platform/network/PlaylistAttributes.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace zaffo::network {

PlaylistAttributes parseAttributes(std::string_view text) {
  PlaylistAttributes attributes;
  while (!text.empty()) {
    const auto equals = text.find('=');
    if (equals == std::string_view::npos) break;
    std::string_view name = text.substr(0, equals);
    name.remove_prefix(std::min(name.find_first_not_of(' '), name.size()));
    text.remove_prefix(equals + 1);
    const bool isQuoted = text.starts_with('"');
    if (isQuoted) text.remove_prefix(1);
    const auto end = text.find(isQuoted ? '"' : ',');
    if (isQuoted && end == std::string_view::npos) break;
    attributes.emplace(name, text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end);
    const auto comma = text.find(',');
    if (comma == std::string_view::npos) break;
    text.remove_prefix(comma + 1);
  }
  return attributes;
}

std::optional<int64_t> parseWhole(std::string_view text) {
  int64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, failure] = std::from_chars(text.data(), end, value);
  if (failure != std::errc() || stop != end || value < 0) return std::nullopt;
  return value;
}

std::optional<double> parseSeconds(std::string_view text) {
  double value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, failure] = std::from_chars(text.data(), end, value);
  constexpr double kMost = 1e6;  // of a list's segments even all together stay far from overflow
  if (failure != std::errc() || stop != end || !std::isfinite(value) || value < 0 ||
      value > kMost) {
    return std::nullopt;
  }
  return value;
}

std::optional<ByteRange> parseByteRange(std::string_view text, int64_t next) {
  const auto at = text.find('@');
  const auto length = parseWhole(text.substr(0, at));
  const auto offset = at == std::string_view::npos ? next : parseWhole(text.substr(at + 1));
  if (!length || !offset || *length == 0) return std::nullopt;
  if (*offset > std::numeric_limits<int64_t>::max() - *length) return std::nullopt;
  return ByteRange{*offset, *length};
}

std::optional<std::array<uint8_t, 16>> parseVector(std::string_view text) {
  constexpr std::size_t kDigits = 32;
  if (!text.starts_with("0x") && !text.starts_with("0X")) return std::nullopt;
  text.remove_prefix(2);
  if (text.empty() || text.size() > kDigits) return std::nullopt;
  const std::string digits = std::string(kDigits - text.size(), '0') + std::string(text);
  std::array<uint8_t, 16> vector{};
  for (std::size_t i = 0; i < vector.size(); ++i) {
    const char* const byte = digits.data() + 2 * i;
    const auto [stop, failure] = std::from_chars(byte, byte + 2, vector[i], 16);
    if (failure != std::errc() || stop != byte + 2) return std::nullopt;
  }
  return vector;
}

}  // namespace zaffo::network
