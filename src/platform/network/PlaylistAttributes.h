// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/network/Playlist.h"

namespace zaffo::network {

/// The attributes of a tag: NAME=value or NAME="value", by commas apart. What is malformed is left
/// out, with all that follows it.
using PlaylistAttributes = std::map<std::string, std::string, std::less<>>;
[[nodiscard]] PlaylistAttributes parseAttributes(std::string_view text);

/// A whole number of digits, or null.
[[nodiscard]] std::optional<int64_t> parseWhole(std::string_view text);
/// A finite number that is not negative, or null.
[[nodiscard]] std::optional<double> parseSeconds(std::string_view text);
/// "length" or "length@offset"; without an offset it begins at `next`. Null when it is malformed.
[[nodiscard]] std::optional<ByteRange> parseByteRange(std::string_view text, int64_t next);
/// "0x" and at most 32 digits.
[[nodiscard]] std::optional<std::array<uint8_t, 16>> parseVector(std::string_view text);

}  // namespace zaffo::network
