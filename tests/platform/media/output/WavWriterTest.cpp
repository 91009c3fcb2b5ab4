// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/WavWriter.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/media/output/SampleTap.h"

namespace zaffo::media {
namespace {

class WavWriterTest : public testing::Test {
 protected:
  ~WavWriterTest() override { std::filesystem::remove(path); }

  std::unique_ptr<WavWriter> create(uint64_t largestRiff = WavWriter::kLargestRiff) {
    auto writer = WavWriter::create(path, 48000, largestRiff);
    EXPECT_EQ(writer.error(), nullptr);
    return std::move(writer).valueOr(nullptr);
  }
  std::string bytes() const {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  template <typename T>
  static T at(const std::string& bytes, size_t offset) {
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
  }

  const std::string path =
      testing::TempDir() + testing::UnitTest::GetInstance()->current_test_info()->name() + ".wav";
};

TEST_F(WavWriterTest, WritesFloatStereoWithItsSizes) {
  const std::vector<float> samples{0.5f, -0.5f, 0.25f, 2.0f};
  create()->append(samples);
  const std::string file = bytes();
  ASSERT_EQ(file.size(), 94u + 16u);
  EXPECT_EQ(file.substr(0, 4), "RIFF");
  EXPECT_EQ(at<uint32_t>(file, 4), file.size() - 8);
  EXPECT_EQ(file.substr(8, 8), "WAVEJUNK");
  EXPECT_EQ(file.substr(48, 4), "fmt ");
  EXPECT_EQ(at<uint16_t>(file, 56), 3);
  EXPECT_EQ(at<uint16_t>(file, 58), 2);
  EXPECT_EQ(at<uint32_t>(file, 60), 48000u);
  EXPECT_EQ(at<uint32_t>(file, 64), 384000u);
  EXPECT_EQ(at<uint16_t>(file, 68), 8);
  EXPECT_EQ(at<uint16_t>(file, 70), 32);
  EXPECT_EQ(file.substr(74, 4), "fact");
  EXPECT_EQ(at<uint32_t>(file, 82), 2u);
  EXPECT_EQ(file.substr(86, 4), "data");
  EXPECT_EQ(at<uint32_t>(file, 90), 16u);
  EXPECT_EQ(std::memcmp(file.data() + 94, samples.data(), 16), 0);
}

TEST_F(WavWriterTest, IsAWholeFileAfterEveryFlush) {
  const auto writer = create();
  EXPECT_EQ(at<uint32_t>(bytes(), 90), 0u);
  writer->append(std::vector<float>(2000, 0.5f));
  writer->flush();
  EXPECT_EQ(at<uint32_t>(bytes(), 90), 8000u);
  EXPECT_EQ(bytes().size(), 94u + 8000u);
  writer->append(std::vector<float>(2000, 0.5f));
  writer->flush();
  EXPECT_EQ(at<uint32_t>(bytes(), 90), 16000u);
  EXPECT_EQ(bytes().size(), 94u + 16000u);
}

TEST_F(WavWriterTest, TurnsIntoRf64WhenItOutgrowsItsSizes) {
  const auto writer = create(10'000);
  writer->append(std::vector<float>(2000, 0.5f));
  writer->flush();
  EXPECT_EQ(bytes().substr(0, 4), "RIFF");
  writer->append(std::vector<float>(2000, 0.5f));
  writer->flush();
  const std::string file = bytes();
  EXPECT_EQ(file.substr(0, 4), "RF64");
  EXPECT_EQ(at<uint32_t>(file, 4), 0xffffffffu);
  EXPECT_EQ(file.substr(12, 4), "ds64");
  EXPECT_EQ(at<uint64_t>(file, 20), file.size() - 8);
  EXPECT_EQ(at<uint64_t>(file, 28), 16000u);
  EXPECT_EQ(at<uint64_t>(file, 36), 2000u);
  EXPECT_EQ(at<uint32_t>(file, 90), 0xffffffffu);
}

TEST_F(WavWriterTest, AppendsSilence) {
  const auto writer = create();
  writer->appendSilence(70'000);
  writer->flush();
  EXPECT_EQ(writer->frames(), 70'000);
  EXPECT_EQ(bytes(), bytes().substr(0, 94) + std::string(560'000, '\0'));
}

TEST_F(WavWriterTest, SaysWhyAFileCannotBeWritten) {
  const NSErrorPtr error = WavWriter::create("/nowhere/at/all.wav", 48000).error();
  ASSERT_NE(error, nullptr);
  EXPECT_NE(error->localizedDescription().find("/nowhere/at/all.wav"), std::string::npos);
  EXPECT_EQ(error->domain(), "NSPOSIXErrorDomain");
  EXPECT_EQ(error->code(), ENOENT);
}

TEST_F(WavWriterTest, StopsCleanlyWhenTheDiskIsFull) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "needs /dev/full";
  const NSErrorPtr error = WavWriter::create("/dev/full", 48000).error();
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->code(), ENOSPC);
}

TEST(SampleTap, GivesRunsOfFramesUnderTheirNumbers) {
  SampleTap tap(100);
  std::vector<float> taken;
  tap.push(7, std::vector<float>(20, 1.0f));
  tap.push(17, std::vector<float>(20, 2.0f));
  tap.push(50, std::vector<float>(20, 3.0f));
  EXPECT_EQ(tap.take(taken), 7);
  EXPECT_EQ(taken.size(), 40u);
  taken.clear();
  EXPECT_EQ(tap.take(taken), 50);
  EXPECT_EQ(taken, std::vector<float>(20, 3.0f));
  taken.clear();
  tap.take(taken);
  EXPECT_TRUE(taken.empty());
}

TEST(SampleTap, DropsWhatDoesNotFitAndGoesOnUnderTheRightNumber) {
  SampleTap tap(100);
  std::vector<float> taken;
  tap.push(0, std::vector<float>(160, 1.0f));
  tap.push(80, std::vector<float>(160, 2.0f));
  EXPECT_EQ(tap.take(taken), 0);
  EXPECT_EQ(taken.size(), 160u);
  taken.clear();
  tap.push(160, std::vector<float>(160, 3.0f));
  EXPECT_EQ(tap.take(taken), 160);
  EXPECT_EQ(taken, std::vector<float>(160, 3.0f));
}

}  // namespace
}  // namespace zaffo::media
