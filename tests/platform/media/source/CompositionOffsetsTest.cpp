// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/CompositionOffsets.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>

#include "doubles/ScriptedByteSource.h"

namespace zaffo::media {
namespace {

std::string number(uint32_t value) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xff);
  return bytes;
}

std::string box(std::string_view kind, const std::string& content) {
  return number(static_cast<uint32_t>(content.size() + 8)) + std::string(kind) + content;
}

/// One of numbers behind a version and flags.
std::string table(std::string_view kind, std::initializer_list<uint32_t> numbers) {
  std::string content = number(0);
  for (const uint32_t value : numbers) content += number(value);
  return box(kind, content);
}

// Five samples: two in a chunk at 1000, one each at 500 and at 2000, one more at 3000.
const std::string kSizes = table("stsz", {0, 5, 10, 20, 30, 40, 50});
const std::string kRuns = table("stsc", {2, 1, 2, 1, 2, 1, 1});
const std::string kChunks = table("stco", {4, 1000, 500, 2000, 3000});
const std::string kOffsets = table("ctts", {3, 1, 7, 3, 0xfffffff8, 1, 9});

struct Reading {
  explicit Reading(const std::string& tables)
      : content(box("mdia", box("minf", box("stbl", tables)))),
        bytes(std::make_shared<ScriptedByteSource>(content)),
        task(bytes) {
    const auto work = [this] {
      const BoxReader reader(task);
      offsets = CompositionOffsets::read(reader, reader.whole());
    };
    while (!task.run(work)) {
      if (!bytes->bringWanted(1 << 20)) return;
    }
  }

  const std::string content;
  const std::shared_ptr<ScriptedByteSource> bytes;
  ReadTask task;
  std::unique_ptr<CompositionOffsets> offsets;
};

TEST(CompositionOffsets, AreFoundByWhereSamplesBegin) {
  const Reading reading(kSizes + kRuns + kChunks + kOffsets);
  ASSERT_TRUE(reading.offsets);
  EXPECT_EQ(reading.offsets->offsetAt(1000), 7);
  EXPECT_EQ(reading.offsets->offsetAt(1010), -8);
  EXPECT_EQ(reading.offsets->offsetAt(500), -8);
  EXPECT_EQ(reading.offsets->offsetAt(2000), -8);
  EXPECT_EQ(reading.offsets->offsetAt(3000), 9);
}

TEST(CompositionOffsets, AreFoundAgainFromTheFirstOn) {
  const Reading reading(kSizes + kRuns + kChunks + kOffsets);
  ASSERT_TRUE(reading.offsets);
  EXPECT_EQ(reading.offsets->offsetAt(3000), 9);
  EXPECT_EQ(reading.offsets->offsetAt(1000), 7);
  EXPECT_EQ(reading.offsets->offsetAt(1005), std::nullopt) << "no sample begins there";
}

TEST(CompositionOffsets, AreNotLookedForWithoutEnd) {
  const Reading reading(kSizes + kRuns + kChunks + kOffsets);
  ASSERT_TRUE(reading.offsets);
  int found = 0;
  while (found < 100 && reading.offsets->offsetAt(found % 2 == 0 ? 3000 : 2000)) ++found;
  EXPECT_GT(found, 1);
  EXPECT_LT(found, 10);
}

TEST(CompositionOffsets, SamplesMayBeAlikeAndFarIntoTheFile) {
  const std::string far = table("co64", {4, 1, 0, 1, 100, 2, 0, 3, 0});
  const Reading reading(table("stsz", {64, 5}) + kRuns + far + kOffsets);
  ASSERT_TRUE(reading.offsets);
  EXPECT_EQ(reading.offsets->offsetAt((int64_t{1} << 32) + 64), -8);
  EXPECT_EQ(reading.offsets->offsetAt(int64_t{3} << 32), 9);
}

TEST(CompositionOffsets, ChunksThatHoldTooFewEndTheSearch) {
  const Reading reading(kSizes + table("stsc", {1, 1, 0, 1}) + kChunks + kOffsets);
  ASSERT_TRUE(reading.offsets);
  EXPECT_EQ(reading.offsets->offsetAt(1000), std::nullopt);
}

TEST(CompositionOffsets, AreNotReadFromDamagedTables) {
  for (const std::string& tables :
       {kRuns + kChunks + kOffsets, kSizes + kChunks + kOffsets, kSizes + kRuns + kOffsets,
        kSizes + kRuns + kChunks, table("stsz", {0, 6, 1, 1, 1, 1, 1}) + kRuns + kChunks + kOffsets,
        kSizes + table("stsc", {0}) + kChunks + kOffsets,
        kSizes + kRuns + table("stco", {0}) + kOffsets,
        kSizes + kRuns + table("stco", {5, 1000, 500, 2000, 3000}) + kOffsets,
        kSizes + kRuns + kChunks + table("ctts", {2, 1, 7, 3, 8}),
        kSizes + kRuns + kChunks + table("ctts", {3, 1, 7, 0, 8, 4, 9}),
        kSizes + kRuns + kChunks + table("ctts", {1, 5, 0x7fffffff})}) {
    EXPECT_FALSE(Reading(tables).offsets);
  }
}

}  // namespace
}  // namespace zaffo::media
