// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/LocalByteSource.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <optional>

#include "doubles/MainLoopUntil.h"
#include "doubles/StalledStorage.h"
#include "media/Clips.h"
#include "platform/dispatch/DispatchQueue.h"

namespace zaffo::media {
namespace {

constexpr int64_t kTenSeconds = 10'000'000'000;

class LocalByteSourceTest : public testing::Test {
 protected:
  const std::string path_ = test::clip("h264_30.mp4");
  const std::shared_ptr<ByteSource> bytes_ = LocalByteSource::open(path_).valueOr(nullptr);
  std::array<uint8_t, 100> piece_{};
  std::atomic<int> told_ = 0;

  ~LocalByteSourceTest() override { dispatch_wait_until_idle(); }

  std::unique_ptr<ByteSource::Want> want(int64_t offset, int64_t count) {
    return bytes_->want(offset, count, [this] { ++told_; });
  }
  bool waitUntilTold(int times) {
    return runMainLoopUntil([&] { return told_ == times; }, kTenSeconds);
  }
  [[nodiscard]] std::string text(int64_t count) const {
    return {piece_.begin(), piece_.begin() + count};
  }
  [[nodiscard]] std::string content(std::size_t offset, std::size_t count) const {
    std::ifstream file(path_, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {}).substr(offset, count);
  }
};

TEST_F(LocalByteSourceTest, WhatTheSystemHoldsIsReadWithoutAWant) {
  ASSERT_EQ(bytes_->readHeld(1000, piece_), 100);
  EXPECT_EQ(text(100), content(1000, 100));
  EXPECT_EQ(bytes_->readHeld(*bytes_->size() - 10, piece_), 10);
  EXPECT_EQ(bytes_->readHeld(*bytes_->size(), piece_), 0);
  EXPECT_EQ(bytes_->name(), path_);
  EXPECT_FALSE(bytes_->error());
}

TEST_F(LocalByteSourceTest, WhatAWantHasBroughtIsHeldForAsLongAsItLives) {
  auto wanted = want(1000, 50);
  ASSERT_TRUE(waitUntilTold(1));
  // Of what the system holds nothing can be had any more.
  const StalledStorage storage(path_);
  EXPECT_EQ(bytes_->readHeld(990, piece_), -EAGAIN);
  ASSERT_EQ(bytes_->readHeld(1010, piece_), 40);
  EXPECT_EQ(text(40), content(1010, 40));
  EXPECT_EQ(bytes_->readHeld(1050, piece_), -EAGAIN);
  wanted.reset();
  EXPECT_EQ(bytes_->readHeld(1010, piece_), -EAGAIN);
  EXPECT_EQ(told_, 1);
}

TEST_F(LocalByteSourceTest, BeyondTheEndAWantBringsWhatThereIs) {
  const int64_t size = *bytes_->size();
  const auto wanted = want(size - 10, 50);
  ASSERT_TRUE(waitUntilTold(1));
  const StalledStorage storage(path_);
  EXPECT_EQ(bytes_->readHeld(size - 10, piece_), 10);
  EXPECT_EQ(bytes_->readHeld(size, piece_), 0);
}

TEST_F(LocalByteSourceTest, AWantThatIsLetGoOfWhileTheDiskStallsIsNotWaitedForNorTold) {
  StalledStorage storage(path_);
  auto wanted = want(0, 50);
  auto behind = want(50, 50);
  ASSERT_TRUE(runMainLoopUntil([] { return StalledStorage::waiting() == 1; }, kTenSeconds));
  wanted.reset();
  behind.reset();
  EXPECT_EQ(StalledStorage::waiting(), 1);
  storage.release();
  dispatch_wait_until_idle();
  EXPECT_EQ(told_, 0);
  const StalledStorage again(path_);
  EXPECT_EQ(bytes_->readHeld(0, piece_), -EAGAIN) << "it was not kept";
}

TEST_F(LocalByteSourceTest, AWantMayBeLetGoOfInItsHandler) {
  std::unique_ptr<ByteSource::Want> wanted;
  std::atomic<bool> isOver = false;
  StalledStorage storage(path_);
  wanted = bytes_->want(0, 50, [&] {
    wanted.reset();
    isOver = true;
  });
  storage.release();
  EXPECT_TRUE(runMainLoopUntil([&] { return isOver.load(); }, kTenSeconds));
}

}  // namespace
}  // namespace zaffo::media
