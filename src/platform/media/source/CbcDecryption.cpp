// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/CbcDecryption.h"

extern "C" {
#include <libavutil/aes.h>
}

#include <algorithm>
#include <memory>

#include "platform/media/FFmpegCommon.h"

namespace zaffo::media {

bool decryptCbc(const CipherBlock& key, CipherBlock before, std::span<uint8_t> blocks) {
  constexpr int kKeyBits = 128;
  const std::unique_ptr<AVAES, MemoryDeleter> cipher(av_aes_alloc());
  if (!cipher || av_aes_init(cipher.get(), key.data(), kKeyBits, 1) < 0) return false;
  const auto count = static_cast<int>(blocks.size() / kCipherBlock);
  av_aes_crypt(cipher.get(), blocks.data(), blocks.data(), count, before.data(), 1);
  return true;
}

std::size_t paddingOf(std::span<const uint8_t> lastBlock) {
  const std::size_t count = lastBlock.empty() ? 0 : lastBlock.back();
  if (count == 0 || count > std::min(kCipherBlock, lastBlock.size())) return 0;
  const auto padding = lastBlock.last(count);
  return std::ranges::all_of(padding, [count](uint8_t byte) { return byte == count; }) ? count : 0;
}

}  // namespace zaffo::media
