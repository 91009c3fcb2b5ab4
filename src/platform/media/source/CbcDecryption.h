// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace zaffo::media {

inline constexpr std::size_t kCipherBlock = 16;
using CipherBlock = std::array<uint8_t, kCipherBlock>;

/// Decrypts whole blocks of AES-128 in CBC mode in place. `before`: the encrypted block before the
/// first of them or, of the first of all, the vector. False when memory is short. Pure.
[[nodiscard]] bool decryptCbc(const CipherBlock& key, CipherBlock before,
                              std::span<uint8_t> blocks);

/// The bytes that PKCS #7 has added to the last block; none where that is not how it ends.
[[nodiscard]] std::size_t paddingOf(std::span<const uint8_t> lastBlock);

}  // namespace zaffo::media
