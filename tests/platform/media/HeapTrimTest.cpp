#include "platform/media/HeapTrim.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <vector>

#include "doubles/ManualTime.h"
#include "doubles/Sanitizers.h"

namespace zaffo::media {
namespace {

constexpr std::size_t kBlock = 16 << 10;
constexpr std::size_t kBlocks = 1024;
constexpr std::size_t kFreed = kBlock * kBlocks / 2;

std::size_t residentBytes() {
  std::ifstream statm("/proc/self/statm");
  std::size_t pages = 0;
  statm >> pages >> pages;
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

class HeapTrimTest : public testing::Test {
 protected:
  void SetUp() override {
    if (test::kHasShadowMemory) GTEST_SKIP() << "a sanitizer holds freed memory back";
#if !defined(__GLIBC__)
    GTEST_SKIP() << "this C library cannot be asked";
#endif
  }

  /// Frees every other one of many blocks: the heap keeps the holes.
  void makeHoles() {
    for (std::size_t i = 0; i < kBlocks; ++i) {
      blocks_.push_back(std::make_unique<char[]>(kBlock));
      std::memset(blocks_.back().get(), 1, kBlock);
    }
    for (std::size_t i = 0; i < kBlocks; i += 2) blocks_[i].reset();
  }

  ManualTime time_;
  std::vector<std::unique_ptr<char[]>> blocks_;
};

TEST_F(HeapTrimTest, GoesBackHalfASecondAfterItWasAskedFor) {
  for (int round = 0; round < 2; ++round) {
    blocks_.clear();
    makeHoles();
    const std::size_t before = residentBytes();
    trimHeapSoon();
    trimHeapSoon();
    time_.advance(kNanosecondsPerSecond / 2 - 1);
    EXPECT_GT(residentBytes() + kFreed / 4, before) << "round " << round;
    time_.advance(1);
    time_.settle();
    EXPECT_LT(residentBytes() + kFreed / 2, before) << "round " << round;
    EXPECT_FALSE(time_.hasTimer());
  }
}

}  // namespace
}  // namespace zaffo::media
