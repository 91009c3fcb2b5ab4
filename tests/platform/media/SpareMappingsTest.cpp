// SPDX-License-Identifier: Apache-2.0
#include "platform/media/SpareMappings.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "doubles/ManualTime.h"
#include "doubles/MappedPages.h"

namespace zaffo::media {
namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20;

class SpareMappingsTest : public testing::Test {
 protected:
  ~SpareMappingsTest() override { spares_.clear(); }

  /// Keeps memory of so many bytes; gives its place.
  const uint8_t* keep(std::size_t bytes) {
    MappedMemory memory(bytes);
    const uint8_t* const place = memory.data();
    spares_.keep(std::move(memory));
    return place;
  }

  ManualTime time_;
  SpareMappings spares_;
};

TEST_F(SpareMappingsTest, GivesWhatHasTheSizeAndOnce) {
  const uint8_t* const small = keep(kMiB);
  const uint8_t* const large = keep(2 * kMiB);
  EXPECT_EQ(spares_.bytes(), 3 * kMiB);
  EXPECT_FALSE(spares_.take(3 * kMiB));
  EXPECT_EQ(spares_.take(2 * kMiB).data(), large);
  EXPECT_FALSE(spares_.take(2 * kMiB));
  EXPECT_EQ(spares_.take(kMiB).data(), small);
  EXPECT_EQ(spares_.bytes(), 0u);
}

TEST_F(SpareMappingsTest, GivesEverythingBackAfterHalfASecond) {
  for (int round = 0; round < 3; ++round) {
    const uint8_t* const first = keep(kMiB);
    time_.advance(kNanosecondsPerSecond / 2 - 1);
    const uint8_t* const second = keep(kMiB);
    EXPECT_TRUE(isMapped(first));
    time_.advance(1);
    EXPECT_FALSE(isMapped(first) || isMapped(second));
    EXPECT_EQ(spares_.bytes(), 0u);
    EXPECT_FALSE(time_.hasTimer());
  }
}

TEST_F(SpareMappingsTest, KeepsNoMoreThanItsBound) {
  for (int i = 0; i < 3; ++i) keep(6 * kMiB);
  EXPECT_EQ(spares_.bytes(), 12 * kMiB);
  const uint8_t* const last = keep(4 * kMiB);
  EXPECT_EQ(spares_.bytes(), SpareMappings::kMostBytes);
  EXPECT_TRUE(isMapped(last));
  EXPECT_FALSE(isMapped(keep(1)));
}

TEST_F(SpareMappingsTest, KeepsNothingOfNothing) {
  spares_.keep({});
  EXPECT_FALSE(time_.hasTimer());
  EXPECT_FALSE(spares_.take(0));
}

}  // namespace
}  // namespace zaffo::media
