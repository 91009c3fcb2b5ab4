// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/GradualRefresh.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace zaffo::media {
namespace {

using Bytes = std::span<const uint8_t>;

constexpr int kLastSlice = 5;      ///< NAL unit types 1 to 5 are slices
constexpr int kRefreshAtOnce = 5;  ///< the slices of a picture that nothing before it matters to
constexpr int kSupplementalInformation = 6;
constexpr unsigned kRecoveryPoint = 6;  ///< a payload of the former

/// The bytes before each NAL unit that tell its length; none where units begin with start codes.
std::optional<std::size_t> lengthBytes(const AVCodecParameters& parameters) {
  if (parameters.extradata_size < 5 || parameters.extradata[0] != 1) return std::nullopt;
  return std::size_t{1} + (parameters.extradata[4] & 3);
}

/// Takes the first NAL unit off `rest`; empty when there is none.
Bytes takeUnit(Bytes& rest, std::size_t lengthBytes) {
  if (rest.size() < lengthBytes) return {};
  std::size_t length = 0;
  for (const uint8_t byte : rest.first(lengthBytes)) length = length << 8 | byte;
  rest = rest.subspan(lengthBytes);
  const Bytes unit = rest.first(std::min(length, rest.size()));
  rest = rest.subspan(unit.size());
  return unit;
}

/// The bytes of a NAL unit as they were before a 3 was put behind each two zeros.
std::vector<uint8_t> unescaped(Bytes unit) {
  std::vector<uint8_t> bytes;
  bytes.reserve(unit.size());
  int zeros = 0;
  for (const uint8_t byte : unit) {
    const bool isEscape = zeros >= 2 && byte == 3;
    zeros = byte == 0 ? zeros + 1 : 0;
    if (!isEscape) bytes.push_back(byte);
  }
  return bytes;
}

/// A number that is written as bytes of 255 and the rest.
std::size_t takeNumber(Bytes& rest) {
  std::size_t number = 0;
  while (!rest.empty()) {
    const uint8_t byte = rest.front();
    rest = rest.subspan(1);
    number += byte;
    if (byte != 255) break;
  }
  return number;
}

/// Whether a recovery point lies further on: its first bit says that the count of frames is zero.
bool tellsOfLaterRecovery(Bytes information) {
  while (information.size() > 2) {
    const std::size_t type = takeNumber(information);
    const std::size_t told = takeNumber(information);
    const std::size_t size = std::min(told, information.size());
    if (type == kRecoveryPoint) return size > 0 && !(information.front() & 0x80);
    information = information.subspan(size);
  }
  return false;
}

}  // namespace

bool beginsGradualRefresh(const AVPacket& packet, const AVCodecParameters& parameters) {
  const auto prefix = lengthBytes(parameters);
  if (parameters.codec_id != AV_CODEC_ID_H264 || !prefix) return false;
  bool isTold = false;
  Bytes rest(packet.data, static_cast<std::size_t>(packet.size));
  for (Bytes unit = takeUnit(rest, *prefix); !unit.empty(); unit = takeUnit(rest, *prefix)) {
    const int type = unit.front() & 0x1f;
    if (type >= 1 && type <= kLastSlice) return isTold && type != kRefreshAtOnce;
    if (type != kSupplementalInformation) continue;
    isTold = isTold || tellsOfLaterRecovery(unescaped(unit.subspan(1)));
  }
  return isTold;
}

}  // namespace zaffo::media
