// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/SampleTimes.h"

#include <gtest/gtest.h>

namespace zaffo::media {
namespace {

Sample sampleAt(CMTime presentation) {
  Sample sample;
  sample.packet.reset(av_packet_alloc());
  sample.presentation = presentation;
  sample.duration = CMTimeMake(1, 30);
  return sample;
}

TEST(SampleTimes, BringsBackWhatASampleSaid) {
  SampleTimes times;
  Sample sample = sampleAt(CMTimeMake(1001, 30000));
  sample.decodeOnly = true;
  sample.heardFrom = CMTimeMake(1, 2);
  sample.heardUntil = CMTimeMake(3, 4);
  const SampleTimes::Entry* entry = times.find(times.remember(sample));
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->presentation, sample.presentation);
  EXPECT_EQ(entry->presentation.timescale, 30000);
  EXPECT_EQ(entry->duration, sample.duration);
  EXPECT_FALSE(!entry->decodeOnly);
  EXPECT_EQ(entry->heardFrom, sample.heardFrom);
  EXPECT_EQ(entry->heardUntil, sample.heardUntil);
}

TEST(SampleTimes, TellsSamplesOfOneTimeApart) {
  SampleTimes times;
  Sample hidden = sampleAt(kCMTimeZero);
  hidden.decodeOnly = true;
  const int64_t first = times.remember(hidden);
  const int64_t second = times.remember(sampleAt(kCMTimeZero));
  EXPECT_LT(first, second);
  EXPECT_TRUE(times.find(first)->decodeOnly);
  EXPECT_FALSE(times.find(second)->decodeOnly);
}

TEST(SampleTimes, KnowsAsManyAsADecoderDelaysAndNoneThatIsOlder) {
  constexpr int kDelayed = 16 * 2 + 16;  // fields of reordered frames, and a frame a thread
  SampleTimes times;
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(times.next(), i);
    ASSERT_EQ(times.remember(sampleAt(CMTimeMake(i, 30))), i);
    const int oldest = std::max(0, i - kDelayed + 1);
    ASSERT_NE(times.find(oldest), nullptr);
    ASSERT_EQ(times.find(oldest)->presentation, CMTimeMake(oldest, 30));
  }
  EXPECT_EQ(times.find(0), nullptr);
}

TEST(SampleTimes, KnowsNoNumberThatIsNotItsOwn) {
  SampleTimes times;
  EXPECT_EQ(times.find(0), nullptr);
  EXPECT_EQ(times.find(-1), nullptr);
  EXPECT_EQ(times.find(INT64_MIN), nullptr);  // a frame without a number
  (void)times.remember(sampleAt(kCMTimeZero));
  EXPECT_EQ(times.find(64), nullptr);
}

TEST(SampleTimes, ASampleThatWasNotAcceptedGivesItsNumberToTheNext) {
  SampleTimes times;
  (void)times.remember(sampleAt(CMTimeMake(1, 30)));
  const int64_t refused = times.remember(sampleAt(CMTimeMake(2, 30)));
  times.forgetLast();
  EXPECT_EQ(times.remember(sampleAt(CMTimeMake(3, 30))), refused);
  EXPECT_EQ(times.find(refused)->presentation, CMTimeMake(3, 30));
}

TEST(SampleTimes, ReadsWhatIsNotToBeHeardOutOfThePacket) {
  SampleTimes times;
  const Sample sample = sampleAt(kCMTimeZero);
  uint8_t* const trim = av_packet_new_side_data(sample.packet.get(), AV_PKT_DATA_SKIP_SAMPLES, 10);
  ASSERT_NE(trim, nullptr);
  AV_WL32(trim, 1024);
  AV_WL32(trim + 4, 77);
  const SampleTimes::Entry* entry = times.find(times.remember(sample));
  EXPECT_EQ(entry->trimStart, 1024u);
  EXPECT_EQ(entry->trimEnd, 77u);
}

TEST(SampleTimes, IgnoresATrimThatIsCutShort) {
  SampleTimes times;
  const Sample sample = sampleAt(kCMTimeZero);
  uint8_t* const trim = av_packet_new_side_data(sample.packet.get(), AV_PKT_DATA_SKIP_SAMPLES, 7);
  ASSERT_NE(trim, nullptr);
  std::fill_n(trim, 7, uint8_t{1});
  const SampleTimes::Entry* entry = times.find(times.remember(sample));
  EXPECT_EQ(entry->trimStart, 0u);
  EXPECT_EQ(entry->trimEnd, 0u);
}

}  // namespace
}  // namespace zaffo::media
