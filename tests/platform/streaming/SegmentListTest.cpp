// SPDX-License-Identifier: Apache-2.0
#include "platform/streaming/SegmentList.h"

#include <gtest/gtest.h>

#include <string>

namespace zaffo::streaming {
namespace {

SegmentList listOf(const std::string& text) {
  const auto base = NSURL::URLWithString("http://host/list.m3u8");
  auto parsed = network::Playlist::parse("#EXTM3U\n#EXT-X-TARGETDURATION:4\n" + text, base);
  EXPECT_TRUE(parsed);
  return SegmentList(*std::move(parsed));
}

const std::string kThree =
    "#EXT-X-MEDIA-SEQUENCE:7\n#EXTINF:4,\na\n#EXTINF:3.5,\nb\n#EXT-X-DISCONTINUITY\n#EXTINF:2,\nc\n"
    "#EXT-X-ENDLIST\n";

TEST(SegmentList, AddsUpWhatSegmentsLast) {
  const SegmentList list = listOf(kThree);
  EXPECT_EQ(list.firstNumber(), 7);
  EXPECT_EQ(list.endNumber(), 10);
  EXPECT_EQ(list.at(8).start, 4);
  EXPECT_EQ(list.at(9).start, 7.5);
  EXPECT_EQ(list.end(), 9.5);
  EXPECT_TRUE(list.isEnded());
  EXPECT_FALSE(list.has(6) || list.has(10));
}

TEST(SegmentList, KnowsWhichSegmentHoldsATime) {
  const SegmentList list = listOf(kThree);
  EXPECT_EQ(list.numberFor(-1), 7);
  EXPECT_EQ(list.numberFor(3.99), 7);
  EXPECT_EQ(list.numberFor(4), 8);
  EXPECT_EQ(list.numberFor(7.5), 9);
  EXPECT_EQ(list.numberFor(100), 9);
}

TEST(SegmentList, ADiscontinuityBeginsAnotherRun) {
  const SegmentList list = listOf("#EXT-X-DISCONTINUITY\n" + kThree);
  EXPECT_EQ(list.at(7).run, 0) << "none was before";
  EXPECT_EQ(list.at(8).run, 0);
  EXPECT_EQ(list.at(9).run, 1);
}

TEST(SegmentList, IsAlignedWithOneThatIsCutAlike) {
  const SegmentList list = listOf(kThree);
  EXPECT_TRUE(list.isAlignedWith(
      listOf("#EXT-X-MEDIA-SEQUENCE:7\n#EXTINF:4.01,\nx\n#EXTINF:3.5,\ny\n#EXT-X-DISCONTINUITY\n"
             "#EXTINF:9,\nz\n#EXT-X-ENDLIST\n")));
  EXPECT_FALSE(list.isAlignedWith(listOf("#EXTINF:4,\nx\n#EXTINF:3.5,\ny\n#EXT-X-ENDLIST\n")));
  EXPECT_FALSE(list.isAlignedWith(
      listOf("#EXT-X-MEDIA-SEQUENCE:7\n#EXTINF:6,\nx\n#EXTINF:3.5,\ny\n#EXT-X-DISCONTINUITY\n"
             "#EXTINF:2,\nz\n#EXT-X-ENDLIST\n")));
}

}  // namespace
}  // namespace zaffo::streaming
