// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/SampleTable.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "doubles/TestSeed.h"
#include "platform/media/FFmpegCommon.h"

namespace zaffo::media {
namespace {

using Entries = std::vector<SampleTable::Entry>;

SampleTable tableOf(const Entries& entries) {
  SampleTable table;
  for (const auto& entry : entries) table.add(entry);
  table.finish();
  return table;
}

Entries entriesOf(const SampleTable& table, std::size_t place = 0) {
  Entries entries;
  SampleTable::Walk walk(table, place);
  while (const auto entry = walk.next()) entries.push_back(*entry);
  return entries;
}

/// Three hours at 60 pictures a second, each in a chunk of its own, with B frames.
Entries threeHoursOfPictures() {
  constexpr std::size_t kCount = std::size_t{3} * 60 * 60 * 60;
  std::mt19937 random(1);
  Entries entries;
  int64_t position = 48;
  for (std::size_t i = 0; i < kCount; ++i) {
    const auto size = static_cast<int32_t>(i % 60 == 0 ? 60'000 : 2000 + random() % 16'000);
    const int64_t offset = 256 * std::array<int64_t, 4>{2, 5, 2, 0}[i % 4];
    entries.push_back({.position = position,
                       .decode = static_cast<int64_t>(i) * 256,
                       .offset = offset,
                       .size = size,
                       .isSync = i % 60 == 0});
    position += size + 200 + static_cast<int64_t>(random() % 400);
  }
  return entries;
}

/// The same of sound, a packet to each picture or none.
Entries threeHoursOfSound() {
  std::mt19937 random(2);
  Entries entries;
  int64_t position = 20'000;
  for (int64_t i = 0; i < int64_t{3} * 60 * 60 * 48'000 / 1024; ++i) {
    const auto size = static_cast<int32_t>(200 + random() % 400);
    entries.push_back({.position = position, .decode = i * 1024, .size = size, .isSync = true});
    position += size + 2000 + static_cast<int64_t>(random() % 16'000);
  }
  return entries;
}

TEST(SampleTable, GivesBackWhatWasPutIn) {
  const auto sound = threeHoursOfSound();
  EXPECT_EQ(entriesOf(tableOf(sound)), sound);
}

TEST(SampleTable, AFilmOfThreeHoursTakesFewBytes) {
  const SampleTable pictures = tableOf(threeHoursOfPictures());
  const SampleTable sound = tableOf(threeHoursOfSound());
  EXPECT_GT(pictures.size() + sound.size(), 1'100'000u);
  EXPECT_LT(pictures.bytes() + sound.bytes(), std::size_t{10} << 20);
  EXPECT_GT(pictures.bytes(), pictures.size()) << "less than a byte each cannot be counted right";
}

TEST(SampleTable, AnyNumbersComeBack) {
  constexpr int64_t kLeast = std::numeric_limits<int64_t>::min();
  constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
  const std::vector<int64_t> numbers{0, kMost, kLeast, -1, 1, kLeast + 1, 127, 128, -64, -65};
  Entries entries;
  for (const int64_t position : numbers) {
    for (const int64_t decode : numbers) {
      for (const int64_t offset : {int64_t{0}, kMost, kLeast}) {
        entries.push_back({.position = position,
                           .decode = decode,
                           .offset = offset,
                           .size = std::numeric_limits<int32_t>::max(),
                           .isSync = position > 0,
                           .isHidden = decode > 0});
      }
    }
  }
  EXPECT_EQ(entriesOf(tableOf(entries)), entries);
}

TEST(SampleTable, EachIsFoundByItsNumber) {
  auto entries = threeHoursOfPictures();
  entries.resize(1000);
  const SampleTable table = tableOf(entries);
  for (std::size_t i = 0; i < entries.size(); ++i) ASSERT_EQ(table.at(i), entries[i]) << i;
  EXPECT_EQ(entriesOf(table, 130), Entries(entries.begin() + 130, entries.end()));
  EXPECT_TRUE(entriesOf(table, 1000).empty());
  EXPECT_TRUE(entriesOf(SampleTable()).empty());
}

/// What FFmpeg's own search among the same entries finds.
std::optional<std::size_t> foundByFFmpeg(const Entries& entries, int64_t time, AVStream& stream) {
  const int found = av_index_search_timestamp(&stream, time, AVSEEK_FLAG_BACKWARD);
  if (found >= 0) return static_cast<std::size_t>(found);
  if (!entries.empty() && time < entries.front().decode) return 0;
  return std::nullopt;
}

TEST(SampleTable, FindsWhatTheDemuxerWouldFind) {
  const unsigned seed = test::testSeed();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 200; ++round) {
    const FormatContextPtr context(avformat_alloc_context());
    AVStream* stream = avformat_new_stream(context.get(), nullptr);
    Entries entries;
    const unsigned hidden = random() % 3, distance = 1 + random() % 200;
    int64_t decode = 0;
    for (unsigned i = 0; i < random() % 400; ++i) {
      decode += 1 + static_cast<int64_t>(random() % 3);
      const bool isSync = random() % distance == 0, isHidden = random() % 4 < hidden;
      entries.push_back(
          {.position = i, .decode = decode, .size = 1, .isSync = isSync, .isHidden = isHidden});
      av_add_index_entry(stream, i, decode, 1, 0,
                         (isSync ? AVINDEX_KEYFRAME : 0) | (isHidden ? AVINDEX_DISCARD_FRAME : 0));
    }
    const SampleTable table = tableOf(entries);
    for (int64_t time = -1; time < decode + 2; ++time) {
      ASSERT_EQ(table.syncAt(time), foundByFFmpeg(entries, time, *stream)) << round << " " << time;
    }
  }
}

}  // namespace
}  // namespace zaffo::media
