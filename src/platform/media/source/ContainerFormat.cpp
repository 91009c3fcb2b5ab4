// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/ContainerFormat.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

namespace zaffo::media {
namespace {

constexpr ContainerFormat kMov{"mov", true, true, true};
constexpr ContainerFormat kMatroska{"matroska", true, false, false};
constexpr ContainerFormat kOgg{"ogg", true, false, false};
constexpr ContainerFormat kFlac{"flac", true, false, false};
constexpr ContainerFormat kWav{"wav", true, false, false};
constexpr ContainerFormat kMp3{"mp3", false, false, false};
constexpr ContainerFormat kAdts{"aac", false, false, false};
constexpr ContainerFormat kAc3{"ac3", false, false, false};
constexpr ContainerFormat kMpegTs{"mpegts", false, false, true};
constexpr std::array kRaw{&kMp3, &kAdts, &kAc3};

std::string_view textAt(std::span<const uint8_t> head, std::size_t offset, std::size_t length) {
  if (head.size() < offset + length) return {};
  return {reinterpret_cast<const char*>(head.data()) + offset, length};
}

bool startsLikeMov(std::span<const uint8_t> head) {
  static constexpr std::array<std::string_view, 8> kBoxes{"ftyp", "moov", "mdat", "wide",
                                                          "free", "skip", "styp", "pnot"};
  return std::ranges::find(kBoxes, textAt(head, 4, 4)) != kBoxes.end();
}

bool startsLikeMpegTs(std::span<const uint8_t> head) {
  constexpr std::size_t kPacketBytes = 188;
  constexpr uint8_t kSync = 0x47;
  return head.size() > 2 * kPacketBytes && head[0] == kSync && head[kPacketBytes] == kSync &&
         head[2 * kPacketBytes] == kSync;
}

}  // namespace

const ContainerFormat* ContainerFormat::byMagic(std::span<const uint8_t> head) {
  if (startsLikeMov(head)) return &kMov;
  if (textAt(head, 0, 4) == "\x1A\x45\xDF\xA3") return &kMatroska;
  if (textAt(head, 0, 4) == "OggS") return &kOgg;
  if (textAt(head, 0, 4) == "fLaC") return &kFlac;
  if (textAt(head, 0, 4) == "RIFF" && textAt(head, 8, 4) == "WAVE") return &kWav;
  return nullptr;
}

// FFmpeg looks at the bytes; what it names is played only when it is on the list.
const ContainerFormat* ContainerFormat::byContent(std::span<const uint8_t> bytes) {
  std::vector<uint8_t> padded(bytes.begin(), bytes.end());
  padded.resize(bytes.size() + AVPROBE_PADDING_SIZE);
  AVProbeData data{};
  data.filename = "";
  data.buf = padded.data();
  data.buf_size = static_cast<int>(bytes.size());
  int score = 0;
  const AVInputFormat* input = av_probe_input_format3(&data, 1, &score);
  if (!input || score < AVPROBE_SCORE_RETRY) return nullptr;
  const auto found = std::ranges::find_if(kRaw, [input](const ContainerFormat* format) {
    return std::string_view(input->name) == format->name;
  });
  return found == kRaw.end() ? nullptr : *found;
}

const ContainerFormat* ContainerFormat::ofSegment(std::span<const uint8_t> bytes) {
  if (startsLikeMov(bytes)) return &kMov;
  return startsLikeMpegTs(bytes) ? &kMpegTs : byContent(bytes);
}

int64_t ContainerFormat::tagBytes(std::span<const uint8_t> head) {
  if (textAt(head, 0, 3) != "ID3" || head.size() < 10) return 0;
  int64_t length = 10;
  for (std::size_t i = 6, shift = 21; i < 10; ++i, shift -= 7) {
    length += int64_t{head[i] & 0x7F} << shift;
  }
  return length;
}

}  // namespace zaffo::media
