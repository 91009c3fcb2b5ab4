// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/GradualRefresh.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "platform/media/Decoding.h"

namespace zaffo::media {
namespace {

class GradualRefreshTest : public testing::Test {
 protected:
  GradualRefreshTest() {
    parameters_->codec_id = AV_CODEC_ID_H264;
    setExtradata({1, 100, 0, 30, 0xff});  // units with four bytes of length
  }

  void setExtradata(const std::vector<uint8_t>& bytes) {
    av_freep(&parameters_->extradata);
    parameters_->extradata = static_cast<uint8_t*>(av_mallocz(64));
    parameters_->extradata_size = static_cast<int>(bytes.size());
    std::ranges::copy(bytes, parameters_->extradata);
  }
  [[nodiscard]] bool begins(const std::vector<uint8_t>& bytes) const {
    PacketPtr packet(av_packet_alloc());
    EXPECT_EQ(av_new_packet(packet.get(), static_cast<int>(bytes.size())), 0);
    std::ranges::copy(bytes, packet->data);
    return beginsGradualRefresh(*packet, *parameters_);
  }

  CodecParametersPtr parameters_{avcodec_parameters_alloc()};
};

TEST_F(GradualRefreshTest, IsToldByARecoveryPointThatLiesFurtherOn) {
  EXPECT_TRUE(begins({0, 0, 0, 5, 6, 6, 1, 0x48, 0x80, 0, 0, 0, 2, 1, 0xff}));
  EXPECT_FALSE(begins({0, 0, 0, 5, 6, 6, 1, 0x84, 0x80, 0, 0, 0, 2, 1, 0xff})) << "at once";
}

TEST_F(GradualRefreshTest, APictureThatStartsAnewAtOnceIsNone) {
  EXPECT_FALSE(begins({0, 0, 0, 5, 6, 6, 1, 0x48, 0x80, 0, 0, 0, 2, 0x65, 0x88}));
  EXPECT_TRUE(begins({0, 0, 0, 5, 6, 6, 1, 0x48, 0x80, 0, 0, 0, 2, 0x41, 0x88}));
}

TEST_F(GradualRefreshTest, InformationThatEndsBeforeItsSizeIsNone) {
  EXPECT_FALSE(begins({0, 0, 0, 5, 6, 5, 200, 1, 2}));
  EXPECT_FALSE(begins({0, 0, 0, 3, 6, 6, 200}));
  EXPECT_FALSE(begins({0, 0, 0, 4, 6, 255, 255, 255}));
}

TEST_F(GradualRefreshTest, IsFoundBehindOtherUnitsAndOtherInformation) {
  EXPECT_TRUE(begins({0, 0, 0, 2, 9, 0x10, 0, 0, 0, 8, 6, 1, 2, 0xaa, 0xbb, 6, 1, 0x48}));
  // A size of 256, and bytes that are escaped.
  std::vector<uint8_t> bytes{0, 0, 1, 9, 6, 5, 255, 1};
  for (int i = 0; i < 86; ++i) bytes.insert(bytes.end(), {0, 0, 3});
  bytes.resize(bytes.size() - 3);
  bytes.insert(bytes.end(), 86, 1);
  bytes.insert(bytes.end(), {6, 1, 0x48});
  bytes[2] = static_cast<uint8_t>((bytes.size() - 4) >> 8);
  bytes[3] = static_cast<uint8_t>(bytes.size() - 4);
  EXPECT_TRUE(begins(bytes));
}

TEST_F(GradualRefreshTest, ASampleWithoutOneIsNone) {
  EXPECT_FALSE(begins({}));
  EXPECT_FALSE(begins({0, 0, 0, 3, 0x65, 0x88, 0x80}));
  EXPECT_FALSE(begins({0, 0, 0, 3, 0x65, 6, 1, 0, 0, 0, 4, 6, 6, 1, 0x48})) << "behind a slice";
}

TEST_F(GradualRefreshTest, WhatIsDamagedOrOfAnotherKindIsNone) {
  EXPECT_FALSE(begins({0, 0, 0, 200, 6, 6}));
  EXPECT_FALSE(begins({0, 0, 0, 200, 6, 6, 0, 0}));
  EXPECT_FALSE(begins({0, 0, 0, 0, 6, 6, 1, 0x48}));
  EXPECT_FALSE(begins({0, 0, 0, 5, 6, 255, 255, 255, 255}));
  const std::vector<uint8_t> bytes{0, 0, 0, 5, 6, 6, 1, 0x48, 0x80};
  ASSERT_TRUE(begins(bytes));
  parameters_->codec_id = AV_CODEC_ID_HEVC;
  EXPECT_FALSE(begins(bytes));
  parameters_->codec_id = AV_CODEC_ID_H264;
  setExtradata({0, 0, 0, 1, 0x67});
  EXPECT_FALSE(begins(bytes));
}

TEST_F(GradualRefreshTest, OnlyTheFirstSampleOfSuchAClipIsASyncSample) {
  for (const char* name : {"gradual_refresh.mkv", "gradual_refresh_fragmented.mp4"}) {
    const auto source = openClip(test::clip(name));
    const auto samples = readAll(*openTrack(*source, AVMediaTypeVideo));
    EXPECT_TRUE(samples.front().sync);
    EXPECT_EQ(std::ranges::count(samples, true, &Sample::sync), 1) << name;
  }
}

}  // namespace
}  // namespace zaffo::media
