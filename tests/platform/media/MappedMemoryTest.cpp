// SPDX-License-Identifier: Apache-2.0
#include "platform/media/MappedMemory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <span>

#include "doubles/MappedPages.h"

namespace zaffo::media {
namespace {

constexpr std::size_t kBytes = 300'000;

TEST(MappedMemory, IsZeroAndItsOwnersAlone) {
  for (const auto pages : {MappedMemory::Pages::WhenTouched, MappedMemory::Pages::AtOnce}) {
    const MappedMemory memory(kBytes, pages);
    ASSERT_TRUE(memory);
    EXPECT_EQ(memory.size(), kBytes);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(memory.data()) % 4096, 0U);
    EXPECT_TRUE(std::ranges::all_of(std::span(memory.data(), kBytes),
                                    [](uint8_t byte) { return byte == 0; }));
    std::fill_n(memory.data(), kBytes, uint8_t{1});
  }
}

TEST(MappedMemory, GoesBackToTheSystemWithItsOwner) {
  const uint8_t* data = nullptr;
  {
    MappedMemory first(kBytes);
    data = first.data();
    const MappedMemory second(std::move(first));
    EXPECT_FALSE(first);
    EXPECT_EQ(second.data(), data);
    EXPECT_TRUE(isMapped(data + kBytes - 1));
  }
  EXPECT_FALSE(isMapped(data));
  EXPECT_FALSE(isMapped(data + kBytes - 1));
}

TEST(MappedMemory, TakesAnothersPlace) {
  MappedMemory memory(kBytes);
  const uint8_t* const former = memory.data();
  memory = MappedMemory(2 * kBytes);
  EXPECT_EQ(memory.size(), 2 * kBytes);
  EXPECT_NE(memory.data(), former);
  EXPECT_TRUE(isMapped(memory.data()));
}

TEST(MappedMemory, IsEmptyWhereThereIsNone) {
  EXPECT_FALSE(MappedMemory());
  EXPECT_FALSE(MappedMemory(0));
  EXPECT_FALSE(MappedMemory(std::numeric_limits<std::size_t>::max() / 2));
}

}  // namespace
}  // namespace zaffo::media
