// SPDX-License-Identifier: Apache-2.0
#include "platform/streaming/SegmentList.h"

#include <gtest/gtest.h>

#include <string>

namespace zaffo::streaming {
namespace {

network::Playlist parsed(const std::string& text) {
  const auto base = NSURL::URLWithString("http://host/list.m3u8");
  auto list = network::Playlist::parse("#EXTM3U\n#EXT-X-TARGETDURATION:4\n" + text, base);
  EXPECT_TRUE(list);
  return *std::move(list);
}

SegmentList listOf(const std::string& text) {
  return SegmentList(parsed(text));
}

/// Segments of 3 s from one number to before another.
std::string live(int first, int end) {
  std::string text = "#EXT-X-MEDIA-SEQUENCE:" + std::to_string(first) + "\n";
  for (int number = first; number < end; ++number) text += "#EXTINF:3,\nx\n";
  return text;
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
  EXPECT_FALSE(list.isAlignedWith(
      listOf("#EXT-X-MEDIA-SEQUENCE:7\n#EXTINF:4,\nx\n#EXTINF:3.5,\ny\n#EXT-X-DISCONTINUITY\n"
             "#EXTINF:2,\nz\n")))
      << "which goes on";
}

// Live

TEST(SegmentList, BeginsThreeTargetDurationsBeforeItsEnd) {
  SegmentList list = listOf(live(10, 20));
  list.startNearEnd();
  EXPECT_EQ(list.firstNumber(), 16) << "where 12 of 30 s are left";
  EXPECT_EQ(list.at(16).start, 0);
  EXPECT_EQ(list.end(), 12);
  SegmentList brief = listOf(live(0, 4));
  brief.startNearEnd();
  EXPECT_EQ(brief.firstNumber(), 0);
}

TEST(SegmentList, GoesOnWithWhatIsNewAndForgetsWhatIsNotListed) {
  SegmentList list = listOf(live(7, 10));
  EXPECT_TRUE(list.goOn(parsed(live(8, 12))));
  EXPECT_EQ(list.firstNumber(), 8);
  EXPECT_EQ(list.endNumber(), 12);
  EXPECT_EQ(list.at(8).start, 3);
  EXPECT_EQ(list.at(10).start, 9);
  EXPECT_EQ(list.at(11).start, 12);
  EXPECT_EQ(list.at(11).run, 0);
  EXPECT_FALSE(list.isEnded());
  EXPECT_FALSE(list.goOn(parsed(live(8, 12)))) << "nothing follows yet";
  EXPECT_EQ(list.endNumber(), 12);
}

TEST(SegmentList, IsOverOnceItsListIs) {
  SegmentList list = listOf(live(7, 10));
  EXPECT_FALSE(list.goOn(parsed("")));
  EXPECT_TRUE(list.goOn(parsed(live(8, 10) + "#EXT-X-ENDLIST\n")));
  EXPECT_TRUE(list.isEnded());
  EXPECT_TRUE(listOf(live(7, 10)).goOn(parsed("#EXT-X-ENDLIST\n"))) << "with nothing in it";
}

TEST(SegmentList, WhatWasNeverListedIsAGapOfAnotherRun) {
  SegmentList list = listOf(live(7, 10));
  EXPECT_TRUE(list.goOn(parsed(live(12, 13))));
  EXPECT_EQ(list.firstNumber(), 12);
  EXPECT_EQ(list.at(12).start, 9 + 2 * 4) << "two target durations";
  EXPECT_EQ(list.at(12).run, 1);
}

}  // namespace
}  // namespace zaffo::streaming
