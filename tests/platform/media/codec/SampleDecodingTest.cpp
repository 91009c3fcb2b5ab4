// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/SampleDecoding.h"

#include <gtest/gtest.h>

#include <vector>

#include "doubles/MemorySource.h"
#include "platform/media/Encoding.h"
#include "platform/media/codec/CodecContext.h"

namespace zaffo::media {
namespace {

class SampleDecodingTest : public testing::Test {
 protected:
  [[nodiscard]] CodecContextPtr open() {
    return openCodec(*encoded_.parameters, 1).valueOr(nullptr);
  }
  /// The times of the samples whose pictures can be received.
  std::vector<CMTime> receiveAll() {
    std::vector<CMTime> times;
    while (decoding_.receive(frame_) == 0) {
      const SampleTimes::Entry* const entry = decoding_.sampleOf(*frame_);
      times.push_back(entry ? entry->presentation : kCMTimeInvalid);
    }
    return times;
  }

  Encoded encoded_ = encodePictures({.options = "g=8;bf=2", .count = 8});
  FramePtr frame_;
  SampleDecoding decoding_{open(), "It cannot be decoded."};
};

TEST_F(SampleDecodingTest, APictureFindsTheSampleItCameOutOfWhateverTheTimes) {
  // The times of a composition: another timescale, another place, and each of them twice.
  std::vector<CMTime> expected;
  for (Sample& sample : encoded_.samples) {
    const int64_t number = CMTimeConvertScale(sample.presentation, kEncodedRate).value;
    sample.presentation = CMTimeMake(7'000'001 + number / 2, 90'001);
  }
  for (int64_t number = 0; number < 8; ++number) {
    expected.push_back(CMTimeMake(7'000'001 + number / 2, 90'001));
  }
  std::vector<CMTime> times;
  for (const Sample& sample : encoded_.samples) {
    ASSERT_EQ(decoding_.send(sample), Outcome::Ready);
    for (const CMTime time : receiveAll()) times.push_back(time);
  }
  decoding_.drain();
  for (const CMTime time : receiveAll()) times.push_back(time);
  EXPECT_EQ(times, expected);
}

TEST_F(SampleDecodingTest, SaysAgainWhileAPictureWaitsAndLosesNoNumberByIt) {
  ASSERT_EQ(decoding_.send(encoded_.samples[0]), Outcome::Ready);
  ASSERT_EQ(decoding_.send(encoded_.samples[1]), Outcome::Ready);
  const int64_t next = decoding_.nextNumber();
  EXPECT_EQ(decoding_.send(encoded_.samples[2]), Outcome::Again);
  EXPECT_EQ(decoding_.nextNumber(), next);
  EXPECT_EQ(decoding_.error(), nullptr);
  EXPECT_EQ(receiveAll(), std::vector<CMTime>{encoded_.samples[0].presentation});
  EXPECT_EQ(decoding_.send(encoded_.samples[2]), Outcome::Ready);
}

TEST_F(SampleDecodingTest, ASampleThatStartsAnewIsTakenWhileAPictureWaits) {
  ASSERT_EQ(decoding_.send(encoded_.samples[0]), Outcome::Ready);
  ASSERT_EQ(decoding_.send(encoded_.samples[1]), Outcome::Ready);
  Sample again = copyOf(encoded_.samples[0]);
  again.isDiscontinuity = true;
  again.presentation = CMTimeMake(9, 1);
  EXPECT_EQ(decoding_.send(again), Outcome::Ready);
  decoding_.drain();
  EXPECT_EQ(receiveAll(),
            (std::vector<CMTime>{encoded_.samples[0].presentation, encoded_.samples[1].presentation,
                                 CMTimeMake(9, 1)}));
}

TEST_F(SampleDecodingTest, ASampleThatTheFileDiscardsIsDecoded) {
  Sample discarded = copyOf(encoded_.samples[0]);
  discarded.packet->flags |= AV_PKT_FLAG_DISCARD;
  ASSERT_EQ(decoding_.send(discarded), Outcome::Ready);
  decoding_.drain();
  EXPECT_EQ(receiveAll().size(), 1u);
}

TEST_F(SampleDecodingTest, TheSampleIsLeftAsItWas) {
  const Sample& sample = encoded_.samples[1];
  const int64_t pts = sample.packet->pts, dts = sample.packet->dts;
  const uint8_t* const bytes = sample.packet->data;
  ASSERT_EQ(decoding_.send(encoded_.samples[0]), Outcome::Ready);
  ASSERT_EQ(decoding_.send(sample), Outcome::Ready);
  EXPECT_EQ(sample.packet->pts, pts);
  EXPECT_EQ(sample.packet->dts, dts);
  EXPECT_EQ(sample.packet->data, bytes);
}

TEST_F(SampleDecodingTest, AnErrorSaysWhatItMeansToAPersonAndIsForgottenWithTheNextSample) {
  Sample damaged = copyOf(encoded_.samples[0]);
  ASSERT_GE(av_packet_make_writable(damaged.packet.get()), 0);
  std::fill_n(damaged.packet->data, damaged.packet->size, uint8_t{0});
  int result = 0;
  Outcome outcome = decoding_.send(damaged);
  if (outcome == Outcome::Ready && (result = decoding_.receive(frame_)) < 0) {
    outcome = decoding_.fail(result);
  }
  ASSERT_EQ(outcome, Outcome::Error);
  ASSERT_TRUE(decoding_.error());
  EXPECT_EQ(decoding_.error()->domain(), AVFoundationErrorDomain);
  EXPECT_EQ(decoding_.error()->code(), AVErrorDecodeFailed);
  EXPECT_EQ(decoding_.error()->localizedDescription(), "It cannot be decoded.");
  EXPECT_EQ(decoding_.send(encoded_.samples[0]), Outcome::Ready);
  EXPECT_EQ(decoding_.error(), nullptr);
}

TEST_F(SampleDecodingTest, WaitingAndTheEndAreNoErrors) {
  EXPECT_EQ(decoding_.fail(AVERROR(EAGAIN)), Outcome::Again);
  EXPECT_EQ(decoding_.fail(AVERROR_EOF), Outcome::End);
  EXPECT_EQ(decoding_.error(), nullptr);
  EXPECT_EQ(decoding_.fail(AVERROR_INVALIDDATA), Outcome::Error);
  decoding_.reset();
  EXPECT_EQ(decoding_.error(), nullptr);
}

TEST_F(SampleDecodingTest, NumbersGoOnRisingOverAResetAndAnotherCodec) {
  ASSERT_EQ(decoding_.send(encoded_.samples[0]), Outcome::Ready);
  const int64_t next = decoding_.nextNumber();
  decoding_.reset();
  EXPECT_EQ(decoding_.nextNumber(), next);
  decoding_.startAnewWith(open());
  ASSERT_EQ(decoding_.send(encoded_.samples[0]), Outcome::Ready);
  EXPECT_EQ(decoding_.nextNumber(), next + 1);
}

}  // namespace
}  // namespace zaffo::media
