// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/ContainerFormat.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace zaffo::media {
namespace {

using std::string_view_literals::operator""sv;

std::string byMagic(std::string_view head) {
  const auto* const bytes = reinterpret_cast<const uint8_t*>(head.data());
  const ContainerFormat* const format = ContainerFormat::byMagic({bytes, head.size()});
  return format ? format->name : "none";
}

TEST(ContainerFormat, KnowsAFormatByItsFirstBytes) {
  EXPECT_EQ(byMagic("\0\0\0\x20"
                    "ftypisom"sv),
            "mov");
  EXPECT_EQ(byMagic("\0\0\0\x08"
                    "moov\0\0\0\0"sv),
            "mov");
  EXPECT_EQ(byMagic("\x1A\x45\xDF\xA3\0\0\0\0\0\0\0\0"sv), "matroska");
  EXPECT_EQ(byMagic("OggS\0\0\0\0\0\0\0\0"sv), "ogg");
  EXPECT_EQ(byMagic("fLaC\0\0\0\0\0\0\0\0"sv), "flac");
  EXPECT_EQ(byMagic("RIFF\x10\0\0\0WAVE"sv), "wav");
}

TEST(ContainerFormat, KnowsNoneThatCouldNameOtherFiles) {
  EXPECT_EQ(byMagic("#EXTM3U\n#EXT"sv), "none");
  EXPECT_EQ(byMagic("ffconcat ver"sv), "none");
  EXPECT_EQ(byMagic("<?xml versio"sv), "none");
  EXPECT_EQ(byMagic("RIFF\x10\0\0\0AVI "sv), "none");
}

TEST(ContainerFormat, KnowsNoneByTooFewBytes) {
  const std::string_view mov =
      "\0\0\0\x20"
      "ftypisom"sv;
  const std::string_view wav = "RIFF\x10\0\0\0WAVE"sv;
  for (std::size_t length = 0; length < 8; ++length) {
    EXPECT_EQ(byMagic(mov.substr(0, length)), "none") << length;
  }
  for (std::size_t length = 0; length < 12; ++length) {
    EXPECT_EQ(byMagic(wav.substr(0, length)), "none") << length;
  }
}

TEST(ContainerFormat, OnlyOneWhoseHeaderNamesEverySampleSaysSo) {
  const auto find = [](std::string_view head) {
    return ContainerFormat::byMagic({reinterpret_cast<const uint8_t*>(head.data()), head.size()});
  };
  EXPECT_TRUE(find("\0\0\0\x20"
                   "ftypisom"sv)
                  ->hasCompleteIndex);
  EXPECT_TRUE(find("\0\0\0\x20"
                   "ftypisom"sv)
                  ->describesItself);
  EXPECT_FALSE(find("OggS\0\0\0\0\0\0\0\0"sv)->hasCompleteIndex);
}

/// Frames of AAC with their headers, silent.
std::vector<uint8_t> adtsFrames(int count) {
  std::vector<uint8_t> bytes;
  for (int i = 0; i < count; ++i) {
    const uint8_t frame[] = {0xFF, 0xF1, 0x4C, 0x80, 0x02, 0x1F, 0xFC, 0x21, 0x10,
                             0x04, 0x60, 0x8C, 0x1C, 0,    0,    0,    0};
    bytes.insert(bytes.end(), std::begin(frame), std::end(frame));
    bytes[bytes.size() - 17 + 4] = 17 >> 3;
    bytes[bytes.size() - 17 + 5] = static_cast<uint8_t>((17 & 7) << 5 | 0x1F);
  }
  return bytes;
}

TEST(ContainerFormat, KnowsARawStreamByALongerLook) {
  const std::vector<uint8_t> bytes = adtsFrames(400);
  const ContainerFormat* const format = ContainerFormat::byContent(bytes);
  ASSERT_NE(format, nullptr);
  EXPECT_STREQ(format->name, "aac");
  EXPECT_FALSE(format->describesItself);
}

TEST(ContainerFormat, WhatIsNotOnTheListIsNotKnownByALongerLookEither) {
  std::string playlist = "#EXTM3U\n#EXT-X-TARGETDURATION:10\n";
  for (int i = 0; i < 200; ++i) playlist += "#EXTINF:10,\n/etc/passwd\n";
  EXPECT_EQ(ContainerFormat::byContent(
                {reinterpret_cast<const uint8_t*>(playlist.data()), playlist.size()}),
            nullptr);
  EXPECT_EQ(ContainerFormat::byContent(std::vector<uint8_t>(4096, 0)), nullptr);
  EXPECT_EQ(ContainerFormat::byContent({}), nullptr);
}

TEST(ContainerFormat, KnowsMpegTsForSegmentsAlone) {
  std::vector<uint8_t> bytes(3 * 188);
  for (std::size_t packet = 0; packet < 3; ++packet) bytes[packet * 188] = 0x47;
  const ContainerFormat* const format = ContainerFormat::ofSegment(bytes);
  ASSERT_TRUE(format);
  EXPECT_STREQ(format->name, "mpegts");
  EXPECT_FALSE(format->describesItself || format->hasCompleteIndex);
  EXPECT_TRUE(format->tellsDecodeTimes);
  EXPECT_EQ(ContainerFormat::byMagic(bytes), nullptr);
  EXPECT_EQ(ContainerFormat::byContent(bytes), nullptr);
  EXPECT_EQ(ContainerFormat::ofSegment(std::span(bytes).first(376)), nullptr);
  bytes[188] = 0;
  EXPECT_EQ(ContainerFormat::ofSegment(bytes), nullptr);
}

TEST(ContainerFormat, KnowsNoOtherFilesForSegments) {
  for (const std::string& text :
       {std::string("#EXTM3U\n#EXT-X-VERSION:3\n"), std::string("\x1A\x45\xDF\xA3 and more"),
        std::string("ffconcat version 1.0\nfile a\n")}) {
    const std::vector<uint8_t> bytes(text.begin(), text.end());
    EXPECT_EQ(ContainerFormat::ofSegment(bytes), nullptr) << text;
  }
}

TEST(ContainerFormat, KnowsHowLongTheTagBeforeTheMusicIs) {
  const auto tagBytes = [](std::string_view head) {
    return ContainerFormat::tagBytes({reinterpret_cast<const uint8_t*>(head.data()), head.size()});
  };
  EXPECT_EQ(tagBytes("ID3\x04\0\0\0\0\x02\x01"sv), 10 + 257);
  EXPECT_EQ(tagBytes("ID3\x04\0\0\x7F\x7F\x7F\x7F"sv), 10 + (int64_t{1} << 28) - 1);
  EXPECT_EQ(tagBytes("ID3\x04\0\0\0\0\x02"sv), 0);
  EXPECT_EQ(tagBytes("TAG\x04\0\0\0\0\x02\x01"sv), 0);
}

}  // namespace
}  // namespace zaffo::media
