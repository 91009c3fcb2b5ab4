// SPDX-License-Identifier: Apache-2.0
#include "platform/media/HeapHoles.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

#include "doubles/ManualTime.h"
#include "doubles/Sanitizers.h"

namespace zaffo::media {
namespace {

constexpr std::size_t kBlock = 100 << 10;
constexpr std::size_t kBlocks = 64;
constexpr std::size_t kHole = 3;  // blocks
constexpr std::size_t kFreed = kBlock * kBlocks / (kHole + 1) * kHole;

std::size_t residentBytes() {
  std::ifstream statm("/proc/self/statm");
  std::size_t pages = 0;
  statm >> pages >> pages;
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

using Blocks = std::vector<std::unique_ptr<char[]>>;

/// Frees most of many blocks, with some between them that stay: the heap of the calling thread
/// keeps the holes.
Blocks makeHoles() {
  Blocks blocks;
  for (std::size_t i = 0; i < kBlocks; ++i) {
    blocks.push_back(std::make_unique<char[]>(kBlock));
    std::memset(blocks.back().get(), 'x', kBlock);
  }
  for (std::size_t i = 0; i < kBlocks; ++i) {
    if (i % (kHole + 1) != 0) blocks[i].reset();
  }
  return blocks;
}

bool isIntact(const Blocks& blocks) {
  for (const auto& block : blocks) {
    for (std::size_t i = 0; block && i < kBlock; ++i) {
      if (block[i] != 'x') return false;
    }
  }
  return true;
}

class HeapHolesTest : public testing::Test {
 protected:
  void SetUp() override {
    if (test::kHasShadowMemory) GTEST_SKIP() << "a sanitizer holds freed memory back";
  }
  ManualTime time_;
};

TEST_F(HeapHolesTest, GoBackAndWhatLiesBetweenThemStays) {
  const Blocks blocks = makeHoles();
  const std::size_t before = residentBytes();
  returnHoles();
  EXPECT_LT(residentBytes() + kFreed / 2, before);
  EXPECT_TRUE(isIntact(blocks));
}

TEST_F(HeapHolesTest, ThoseOfOtherThreadsStay) {
  const Blocks blocks = makeHoles();
  const std::size_t before = residentBytes();
  std::thread(returnHoles).join();
  EXPECT_GT(residentBytes() + kFreed / 4, before);
}

TEST_F(HeapHolesTest, OneThatIsLargerThanADecodersGoesBackWhereThatIsTold) {
  constexpr std::size_t kMany = 400;
  Blocks blocks;
  for (std::size_t i = 0; i < kMany; ++i) {
    blocks.push_back(std::make_unique<char[]>(kBlock));
    std::memset(blocks.back().get(), 'x', kBlock);
  }
  for (std::size_t i = 1; i + 1 < kMany; ++i) blocks[i].reset();
  const std::size_t before = residentBytes();
  returnHoles();
  EXPECT_GT(residentBytes() + kBlock * kMany / 2, before);
  returnHolesOf(kBlock * kMany);
  EXPECT_LT(residentBytes() + kBlock * kMany / 4 * 3, before);
  EXPECT_TRUE(isIntact(blocks));
}

TEST_F(HeapHolesTest, ThoseOfTheWorkersGoBackHalfASecondAfterItWasAskedFor) {
  for (int round = 0; round < 2; ++round) {
    Blocks blocks;
    dispatch_queue_create("test.holes")->async([&blocks] {
      blocks = makeHoles();
      returnHolesSoon();
      returnHolesSoon();
    });
    time_.settle();
    const std::size_t before = residentBytes();
    time_.advance(kNanosecondsPerSecond / 2 - 1);
    EXPECT_GT(residentBytes() + kFreed / 4, before) << "round " << round;
    time_.advance(kNanosecondsPerSecond / 2);  // until it is that worker's turn
    EXPECT_LT(residentBytes() + kFreed / 2, before) << "round " << round;
    EXPECT_TRUE(isIntact(blocks));
    EXPECT_FALSE(time_.hasTimer());
  }
}

}  // namespace
}  // namespace zaffo::media
