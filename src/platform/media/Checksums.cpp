// SPDX-License-Identifier: Apache-2.0
#include "platform/media/Checksums.h"

#include <array>
#include <memory>

#include "platform/FatalError.h"
#include "platform/media/FFmpegCommon.h"

extern "C" {
#include <libavutil/crc.h>
#include <libavutil/sha.h>
}

namespace zaffo::media {

uint32_t crc32Of(std::span<const uint8_t> bytes) {
  const AVCRC* const table = av_crc_get_table(AV_CRC_32_IEEE_LE);
  return ~av_crc(table, ~uint32_t{0}, bytes.data(), bytes.size());
}

std::string sha256Of(std::string_view text) {
  const std::unique_ptr<AVSHA, MemoryDeleter> context(av_sha_alloc());
  if (!context || av_sha_init(context.get(), 256) < 0) fatalError("Memory is short.");
  av_sha_update(context.get(), reinterpret_cast<const uint8_t*>(text.data()), text.size());
  std::array<uint8_t, 32> digest{};
  av_sha_final(context.get(), digest.data());
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string name;
  for (const uint8_t byte : digest) {
    name += kDigits[byte >> 4];
    name += kDigits[byte & 15];
  }
  return name;
}

}  // namespace zaffo::media
