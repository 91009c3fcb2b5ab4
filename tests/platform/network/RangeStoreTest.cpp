// SPDX-License-Identifier: Apache-2.0
#include "platform/network/RangeStore.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <map>
#include <numeric>
#include <random>
#include <vector>

#include "doubles/TestSeed.h"

namespace zaffo::network {
namespace {

constexpr int64_t kBlock = RangeStore::kBlockSize;

/// Bytes that tell their place.
std::vector<uint8_t> bytesAt(int64_t offset, int64_t count) {
  std::vector<uint8_t> bytes(static_cast<std::size_t>(count));
  for (int64_t i = 0; i < count; ++i) {
    bytes[static_cast<std::size_t>(i)] = static_cast<uint8_t>((offset + i) % 251);
  }
  return bytes;
}

void write(RangeStore& store, int64_t offset, int64_t count) {
  ASSERT_TRUE(store.write(offset, bytesAt(offset, count)));
}

/// How many bytes can be read there; they are the right ones.
int64_t readable(RangeStore& store, int64_t offset, int64_t count) {
  std::vector<uint8_t> bytes(static_cast<std::size_t>(count));
  const int64_t read = store.read(offset, bytes);
  bytes.resize(static_cast<std::size_t>(read));
  EXPECT_EQ(bytes, bytesAt(offset, read));
  return read;
}

TEST(RangeStore, ReadsWhatWasWrittenUpToTheFirstGap) {
  RangeStore store(10 * kBlock);
  write(store, 100, 50);
  write(store, 200, 50);
  EXPECT_EQ(readable(store, 100, 500), 50);
  EXPECT_EQ(readable(store, 120, 500), 30);
  EXPECT_EQ(readable(store, 99, 500), 0);
  EXPECT_EQ(readable(store, 150, 500), 0);
  write(store, 150, 50);
  EXPECT_EQ(readable(store, 100, 500), 150);
}

TEST(RangeStore, KnowsWhatIsHeldNearestBeforeAPlace) {
  RangeStore store(10 * kBlock);
  EXPECT_EQ(store.heldEndBefore(kBlock), std::nullopt);
  write(store, 100, 50);
  write(store, 200, 50);
  write(store, 3 * kBlock, 10);
  EXPECT_EQ(store.heldEndBefore(100), std::nullopt);
  EXPECT_EQ(store.heldEndBefore(120), 120) << "in the midst of it";
  EXPECT_EQ(store.heldEndBefore(150), 150);
  EXPECT_EQ(store.heldEndBefore(200), 150);
  EXPECT_EQ(store.heldEndBefore(2 * kBlock), 250);
  EXPECT_EQ(store.heldEndBefore(3 * kBlock), 250);
  EXPECT_EQ(store.heldEndBefore(9 * kBlock), 3 * kBlock + 10);
}

TEST(RangeStore, ReadsAcrossBlocks) {
  RangeStore store(10 * kBlock);
  write(store, kBlock - 10, 2 * kBlock);
  EXPECT_EQ(readable(store, kBlock - 10, 3 * kBlock), 2 * kBlock);
  EXPECT_EQ(store.firstMissing(kBlock, 9 * kBlock), 3 * kBlock - 10);
  EXPECT_EQ(store.firstMissing(kBlock, kBlock + 7), kBlock + 7);
  EXPECT_EQ(store.firstMissing(5 * kBlock, 9 * kBlock), 5 * kBlock);
}

TEST(RangeStore, FindsWhatIsHeldNext) {
  RangeStore store(10 * kBlock);
  EXPECT_EQ(store.firstHeld(0), std::nullopt);
  write(store, 3 * kBlock + 5, 10);
  EXPECT_EQ(store.firstHeld(0), 3 * kBlock + 5);
  EXPECT_EQ(store.firstHeld(3 * kBlock), 3 * kBlock + 5);
  EXPECT_EQ(store.firstHeld(3 * kBlock + 9), 3 * kBlock + 9);
  EXPECT_EQ(store.firstHeld(3 * kBlock + 15), std::nullopt);
}

TEST(RangeStore, DropsWhatWasUsedLeastRecently) {
  RangeStore store(3 * kBlock);
  for (int64_t block = 0; block < 3; ++block) write(store, block * kBlock, kBlock);
  EXPECT_EQ(readable(store, 0, 1), 1);
  write(store, 3 * kBlock, kBlock);
  EXPECT_EQ(store.memory(), 3 * kBlock);
  EXPECT_EQ(readable(store, 0, 1), 1);
  EXPECT_EQ(readable(store, kBlock, 1), 0);
  EXPECT_EQ(readable(store, 2 * kBlock, 1), 1);
}

TEST(RangeStore, DropsNothingThatIsPinnedUntilItNoLongerIs) {
  RangeStore store(2 * kBlock);
  store.pin(0, 4 * kBlock);
  store.pin(0, 4 * kBlock);
  for (int64_t block = 0; block < 4; ++block) write(store, block * kBlock, kBlock);
  EXPECT_EQ(store.memory(), 4 * kBlock);
  store.unpin(0, 4 * kBlock);
  EXPECT_EQ(store.memory(), 4 * kBlock);
  store.unpin(0, 4 * kBlock);
  EXPECT_EQ(store.memory(), 2 * kBlock);
  EXPECT_EQ(store.firstHeld(0), 2 * kBlock);
}

TEST(RangeStore, GivesBackWhatANewBoundLeavesNoRoomFor) {
  RangeStore store(4 * kBlock);
  for (int64_t block = 0; block < 4; ++block) write(store, block * kBlock, kBlock);
  store.setBound(kBlock);
  EXPECT_EQ(store.memory(), kBlock);
  EXPECT_EQ(readable(store, 3 * kBlock, kBlock), kBlock);
}

TEST(RangeStore, HoldsTheSameAsAPlainMapWhateverTheOrder) {
  const auto seed = test::testSeed();
  std::mt19937 random(seed);
  RangeStore store(100 * kBlock);
  std::vector<bool> held(static_cast<std::size_t>(4 * kBlock));
  std::uniform_int_distribution<int64_t> place(0, 4 * kBlock - 1);
  std::uniform_int_distribution<int64_t> length(1, kBlock / 4);
  for (int round = 0; round < 100; ++round) {
    const int64_t offset = place(random);
    const int64_t count = std::min(length(random), 4 * kBlock - offset);
    write(store, offset, count);
    std::fill_n(held.begin() + offset, count, true);
    const int64_t from = place(random);
    const auto missing = std::find(held.begin() + from, held.end(), false) - held.begin();
    ASSERT_EQ(store.firstMissing(from, 4 * kBlock), missing) << seed;
    const auto next = std::find(held.begin() + from, held.end(), true) - held.begin();
    ASSERT_EQ(store.firstHeld(from).value_or(4 * kBlock), next) << seed;
    ASSERT_EQ(readable(store, from, 4 * kBlock), missing - from) << seed;
  }
}

}  // namespace
}  // namespace zaffo::network
