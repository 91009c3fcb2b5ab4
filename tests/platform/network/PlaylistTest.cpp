// SPDX-License-Identifier: Apache-2.0
#include "platform/network/Playlist.h"

#include <gtest/gtest.h>

#include <tuple>

#include "platform/network/NetworkError.h"

namespace zaffo::network {
namespace {

Result<Playlist> parse(const std::string& text, const std::string& base = "https://host/f/list") {
  return Playlist::parse(text, NSURL::URLWithString(base));
}

/// What a person reads when it is refused.
std::string refusalOf(const std::string& text, const std::string& base = "https://host/f/list") {
  const auto playlist = parse(text, base);
  return playlist ? "" : playlist.error()->localizedDescription();
}

TEST(Playlist, TellsTheVariantsOfAMaster) {
  const auto playlist = parse(
      "#EXTM3U\n"
      "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"a\",NAME=\"English, US\",LANGUAGE=\"en\",DEFAULT=YES,"
      "URI=\"en.m3u8\"\n"
      "#EXT-X-STREAM-INF:BANDWIDTH=1280000,CODECS=\"avc1,mp4a\",RESOLUTION=720x1280,AUDIO=\"a\"\n"
      "low.m3u8\n"
      "#EXT-X-STREAM-INF:BANDWIDTH=2560000\n\n# a remark\n/high.m3u8\n");
  ASSERT_TRUE(playlist);
  EXPECT_EQ(playlist->kind, Playlist::Kind::Master);
  ASSERT_EQ(playlist->variants.size(), 2U);
  const Variant& low = playlist->variants[0];
  EXPECT_EQ(low.address->absoluteString(), "https://host/f/low.m3u8");
  EXPECT_EQ(low.bitsPerSecond, 1'280'000);
  EXPECT_EQ(low.codecs, "avc1,mp4a");
  EXPECT_EQ(low.width, 720);
  EXPECT_EQ(low.height, 1280);
  EXPECT_EQ(low.audioGroup, "a");
  EXPECT_EQ(playlist->variants[1].address->absoluteString(), "https://host/high.m3u8");
  EXPECT_EQ(playlist->variants[1].width, 0);
  ASSERT_EQ(playlist->alternates.size(), 1U);
  const Alternate& sound = playlist->alternates[0];
  EXPECT_EQ(sound.type, "AUDIO");
  EXPECT_EQ(sound.group, "a");
  EXPECT_EQ(sound.name, "English, US");
  EXPECT_EQ(sound.language, "en");
  EXPECT_TRUE(sound.isDefault);
  EXPECT_EQ(sound.address->absoluteString(), "https://host/f/en.m3u8");
}

TEST(Playlist, TellsTheSegmentsOfAMediaList) {
  const auto playlist = parse(
      "#EXTM3U\n#EXT-X-TARGETDURATION:4\n#EXT-X-MEDIA-SEQUENCE:7\n"
      "#EXT-X-MAP:URI=\"init.mp4\",BYTERANGE=\"100@5\"\n"
      "#EXTINF:4.000,First\n#EXT-X-BYTERANGE:1000@100\na.mp4\n"
      "#EXTINF:3.5,\n#EXT-X-BYTERANGE:500\na.mp4\n"
      "#EXT-X-DISCONTINUITY\n#EXT-X-MAP:URI=\"init2.mp4\"\n#EXTINF:2\nb.mp4\n#EXT-X-ENDLIST");
  ASSERT_TRUE(playlist) << playlist.error()->localizedDescription();
  EXPECT_EQ(playlist->kind, Playlist::Kind::Media);
  EXPECT_EQ(playlist->targetSeconds, 4);
  EXPECT_TRUE(playlist->isEnded);
  ASSERT_EQ(playlist->segments.size(), 3U);
  const auto& [first, second, third] =
      std::tie(playlist->segments[0], playlist->segments[1], playlist->segments[2]);
  EXPECT_EQ(first.seconds, 4);
  EXPECT_EQ(first.title, "First");
  EXPECT_EQ(first.number, 7);
  EXPECT_EQ(first.range.offset, 100);
  EXPECT_EQ(first.range.length, 1000);
  EXPECT_FALSE(first.isDiscontinuous);
  EXPECT_EQ(first.header->address->absoluteString(), "https://host/f/init.mp4");
  EXPECT_EQ(first.header->range.offset, 5);
  EXPECT_EQ(first.header->range.length, 100);
  EXPECT_EQ(second.range.offset, 1100);
  EXPECT_EQ(second.number, 8);
  EXPECT_TRUE(third.isDiscontinuous);
  EXPECT_EQ(third.seconds, 2);
  EXPECT_EQ(third.range.length, std::nullopt);
  EXPECT_EQ(third.header->address->absoluteString(), "https://host/f/init2.mp4");
  EXPECT_EQ(third.header->range.length, std::nullopt);
}

TEST(Playlist, TellsWhichKeyASegmentIsUnder) {
  const auto playlist = parse(
      "#EXTM3U\n#EXT-X-KEY:METHOD=AES-128,URI=\"k\",IV=0x0102\n#EXTINF:1,\na\n"
      "#EXT-X-KEY:METHOD=AES-128,URI=\"l\"\n#EXTINF:1,\nb\n"
      "#EXT-X-KEY:METHOD=NONE\n#EXTINF:1,\nc\n");
  ASSERT_TRUE(playlist);
  const auto& first = playlist->segments[0].key;
  EXPECT_EQ(first.address->absoluteString(), "https://host/f/k");
  ASSERT_TRUE(first.vector);
  EXPECT_EQ((*first.vector)[14], 1);
  EXPECT_EQ((*first.vector)[15], 2);
  EXPECT_EQ((*first.vector)[0], 0);
  EXPECT_EQ(playlist->segments[1].key.vector, std::nullopt);
  EXPECT_EQ(playlist->segments[2].key.address, nullptr);
  const auto other = parse("#EXTM3U\n#EXT-X-KEY:METHOD=AES-128,URI=\"k\",IV=0X2A\n#EXTINF:1,\na\n");
  ASSERT_TRUE(other);
  EXPECT_EQ(other->segments[0].key.vector.value()[15], 0x2A);
  EXPECT_EQ(refusalOf("#EXTM3U\n#EXT-X-KEY:METHOD=SAMPLE-AES,URI=\"k\"\n#EXTINF:1,\na\n"),
            "The playlist cannot be played: it is encrypted.");
}

TEST(Playlist, OfALiveStreamIsNotEndedAndMayBeEmpty) {
  const auto playlist = parse("#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXT-X-MEDIA-SEQUENCE:9\n");
  ASSERT_TRUE(playlist);
  EXPECT_FALSE(playlist->isEnded);
  EXPECT_TRUE(playlist->segments.empty());
}

TEST(Playlist, TellsTheClipsOfAPlainList) {
  const auto playlist =
      parse("\xEF\xBB\xBF#EXTM3U\r\n#EXTINF:-1,A clip\r\na%20b.mp4\r\n\r\nhttps://other/c.mp4\r\n");
  ASSERT_TRUE(playlist);
  EXPECT_EQ(playlist->kind, Playlist::Kind::Plain);
  ASSERT_EQ(playlist->segments.size(), 2U);
  EXPECT_EQ(playlist->segments[0].title, "A clip");
  EXPECT_EQ(playlist->segments[0].seconds, 0) << "unknown";
  EXPECT_EQ(playlist->segments[0].address->absoluteString(), "https://host/f/a%20b.mp4");
  EXPECT_EQ(playlist->segments[1].title, "");
  EXPECT_EQ(playlist->segments[1].address->absoluteString(), "https://other/c.mp4");
}

TEST(Playlist, ADurationEndsWhereAttributesBegin) {
  const auto playlist = parse("#EXTM3U\n#EXTINF:4.5 logo=\"a.png\",A clip\na.mp4\n");
  ASSERT_TRUE(playlist);
  EXPECT_EQ(playlist->segments[0].seconds, 4.5);
  EXPECT_EQ(playlist->segments[0].title, "A clip");
}

TEST(Playlist, NeverNamesAFileOrWhatIsLessSecure) {
  const std::string start = "#EXTM3U\n#EXT-X-TARGETDURATION:1\n";
  for (const std::string trick : {"file:///etc/passwd", "data:text/plain,x", "http://host/a"}) {
    for (const std::string& text :
         {start + "#EXTINF:1,\n" + trick + "\n",
          start + "#EXT-X-MAP:URI=\"" + trick + "\"\n#EXTINF:1,\na\n",
          start + "#EXT-X-KEY:METHOD=AES-128,URI=\"" + trick + "\"\n#EXTINF:1,\na\n",
          "#EXTM3U\n#EXT-X-MEDIA:TYPE=AUDIO,URI=\"" + trick + "\"\n",
          "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1\n" + trick + "\n"}) {
      EXPECT_TRUE(refusalOf(text).starts_with("The server ")) << text;
    }
  }
  EXPECT_TRUE(parse(start + "#EXTINF:1,\nhttp://host/a\n", "http://host/list"));
}

TEST(Playlist, IsBoundedInBytesLinesAndEntries) {
  const std::string start = "#EXTM3U\n";
  EXPECT_EQ(refusalOf(std::string(Playlist::kMostBytes + 1, '\n')),
            "The playlist cannot be played: it is too long.");
  EXPECT_EQ(refusalOf(start + "#" + std::string(Playlist::kLongestLine, 'x')),
            "The playlist cannot be played: a line of it is too long.");
  std::string many = start;
  for (std::size_t i = 0; i < Playlist::kMostEntries; ++i) many += "a\n";
  EXPECT_TRUE(parse(many));
  EXPECT_EQ(refusalOf(many + "a\n"), "The playlist cannot be played: it has too many entries.");
  std::string sounds = start;
  for (std::size_t i = 0; i < Playlist::kMostEntries; ++i) sounds += "#EXT-X-MEDIA:TYPE=AUDIO\n";
  EXPECT_TRUE(parse(sounds));
  EXPECT_EQ(refusalOf(sounds + "#EXT-X-MEDIA:TYPE=AUDIO\n"),
            "The playlist cannot be played: it has too many entries.");
}

TEST(Playlist, RefusesWhatContradictsItself) {
  const std::string start = "#EXTM3U\n#EXT-X-TARGETDURATION:1\n";
  for (const std::string& text :
       {std::string(), std::string("#EXTM3U\n"), std::string("#EXT-X-TARGETDURATION:1\na\n"),
        start + "#EXT-X-BYTERANGE:0\na\n", start + "#EXT-X-BYTERANGE:0@5\na\n",
        start + "#EXT-X-BYTERANGE:5\na\n", start + "#EXT-X-BYTERANGE:9223372036854775807@9\na\n",
        start + "#EXT-X-BYTERANGE:5@0\na\n#EXT-X-BYTERANGE:5\nb\n",
        start + "#EXT-X-MEDIA-SEQUENCE:x\na\n", start + "#EXT-X-MEDIA-SEQUENCE:9223372036854775807",
        start + "a\n#EXT-X-MEDIA-SEQUENCE:1\n", start + "#EXT-X-TARGETDURATION:nan\n",
        start + "#EXT-X-TARGETDURATION:-1\n", start + "#EXT-X-TARGETDURATION:1000001\n",
        start + "#EXT-X-MAP:BYTERANGE=\"5@0\"\na\n",
        start + "#EXT-X-KEY:METHOD=AES-128,URI=\"k\",IV=0x\na\n",
        start + "#EXT-X-KEY:METHOD=AES-128,URI=\"k\",IV=0xgg\na\n",
        start + "#EXT-X-STREAM-INF:RESOLUTION=1x99999999999\na\n",
        start + "a\n#EXT-X-STREAM-INF:BANDWIDTH=1\nb\n"}) {
    EXPECT_TRUE(refusalOf(text).starts_with("The playlist cannot be played: ")) << text;
  }
}

}  // namespace
}  // namespace zaffo::network
