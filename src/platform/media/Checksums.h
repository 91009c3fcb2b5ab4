// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace zaffo::media {

/// The CRC-32 of IEEE 802.3, by which bytes that were damaged are known. Thread: any.
[[nodiscard]] uint32_t crc32Of(std::span<const uint8_t> bytes);

/// The SHA-256 of a text as 64 hexadecimal digits: a name for it from which nobody learns the text.
/// Thread: any.
[[nodiscard]] std::string sha256Of(std::string_view text);

}  // namespace zaffo::media
