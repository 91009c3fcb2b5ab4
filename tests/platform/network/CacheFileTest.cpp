// SPDX-License-Identifier: Apache-2.0
#include "platform/network/CacheFile.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "feed/TemporaryFolder.h"
#include "platform/network/RemoteBytes.h"

namespace zaffo::network {
namespace {

std::vector<uint8_t> bytesOf(const std::string& text) {
  return {text.begin(), text.end()};
}

/// No file grows beyond this size while it exists, as on a disk that is full.
class FullDisk {
 public:
  explicit FullDisk(int64_t size) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit full{static_cast<rlim_t>(size), before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &full);
  }
  ~FullDisk() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    (void)std::signal(SIGXFSZ, handler_);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  void (*const handler_)(int);
  rlimit before_{};
};

class CacheFileTest : public testing::Test {
 protected:
  std::unique_ptr<CacheFile> open() {
    int failure = 0;
    auto file = CacheFile::open(path, failure);
    EXPECT_EQ(failure, 0);
    return file;
  }
  /// A description and two runs.
  void writeSome() {
    const auto file = open();
    CachedRanges::Run run;
    EXPECT_EQ(file->describe(description), 0);
    EXPECT_EQ(file->append(0, bytesOf("beginning"), run), 0);
    EXPECT_EQ(file->append(100, bytesOf("midst"), run), 0);
  }
  /// Changes the byte there.
  void damage(int64_t place) const {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekg(place);
    const char byte = static_cast<char>(file.get() ^ 0x40);
    file.seekp(place);
    file.put(byte);
  }
  std::optional<std::vector<uint8_t>> read(const CacheFile& file, int64_t offset) const {
    const auto run = file.ranges().runAt(offset);
    return run ? file.read(*run) : std::nullopt;
  }

  [[nodiscard]] int64_t sizeOnDisk() const {
    return static_cast<int64_t>(std::filesystem::file_size(path));
  }

  const feed::TemporaryFolder folder;
  const std::string path = folder.path() + "/clip";
  const CacheDescription description{
      "https://example.org/a", {"\"one\"", "Sat, 21 Nov 2026 10:00:00 GMT"}, 200, true, 5, 9};
};

TEST_F(CacheFileTest, HasWhatAnEarlierRunWrote) {
  writeSome();
  const auto file = open();
  EXPECT_EQ(file->description(), description);
  EXPECT_EQ(read(*file, 0), bytesOf("beginning"));
  EXPECT_EQ(read(*file, 102), bytesOf("midst"));
  EXPECT_EQ(file->ranges().runAt(105), std::nullopt);
  EXPECT_EQ(file->size(), static_cast<int64_t>(std::filesystem::file_size(path)));
}

TEST_F(CacheFileTest, TheLastDescriptionCounts) {
  writeSome();
  CacheDescription later = description;
  later.size = std::nullopt;
  later.servesRanges = false;
  later.freshUntil = 99;
  EXPECT_EQ(open()->describe(later), 0);
  EXPECT_EQ(open()->description(), later);
}

TEST_F(CacheFileTest, AnEmptyClipIsKnownToBeEmpty) {
  CacheDescription empty = description;
  empty.size = 0;
  EXPECT_EQ(open()->describe(empty), 0);
  EXPECT_EQ(open()->description(), empty);
}

TEST_F(CacheFileTest, AWriteThatFailsInItsMidstLeavesNothing) {
  writeSome();
  const auto file = open();
  const int64_t before = sizeOnDisk();
  CachedRanges::Run run;
  int failure = 0;
  {
    const FullDisk full(before + 40);
    failure = file->append(200, bytesOf("far too much of it"), run);
  }
  EXPECT_EQ(failure, EFBIG);
  EXPECT_EQ(file->size(), before);
  EXPECT_EQ(sizeOnDisk(), before);
  EXPECT_EQ(file->append(200, bytesOf("end"), run), 0);
  EXPECT_EQ(read(*open(), 200), bytesOf("end"));
}

/// Wherever a crash cuts a write off, all records before it are whole, and more can be written.
TEST_F(CacheFileTest, WhatACrashCutsOffIsGone) {
  writeSome();
  const auto whole = static_cast<int64_t>(std::filesystem::file_size(path));
  const int64_t lastRecord = whole - 5 - 32;
  for (int64_t size = whole - 1; size >= lastRecord; --size) {
    std::filesystem::resize_file(path, static_cast<std::uintmax_t>(size));
    const auto file = open();
    EXPECT_EQ(file->size(), lastRecord);
    EXPECT_EQ(sizeOnDisk(), lastRecord);
    EXPECT_EQ(read(*file, 0), bytesOf("beginning"));
    EXPECT_EQ(read(*file, 100), std::nullopt);
    CachedRanges::Run run;
    EXPECT_EQ(file->append(100, bytesOf("midst"), run), 0);
    EXPECT_EQ(file->read(run), bytesOf("midst"));
  }
}

/// Whichever byte is damaged, nothing is given that was not written.
TEST_F(CacheFileTest, NoDamagedByteIsGiven) {
  writeSome();
  const auto size = static_cast<int64_t>(std::filesystem::file_size(path));
  for (int64_t place = 0; place < size; ++place) {
    std::filesystem::remove(path);
    writeSome();
    damage(place);
    const auto file = open();
    const auto beginning = read(*file, 0);
    const auto midst = read(*file, 100);
    EXPECT_EQ(file->description().value_or(description), description) << place;
    EXPECT_EQ(beginning.value_or(bytesOf("beginning")), bytesOf("beginning")) << place;
    EXPECT_EQ(midst.value_or(bytesOf("midst")), bytesOf("midst")) << place;
    EXPECT_FALSE(file->description() && beginning && midst) << "nobody noticed " << place;
  }
}

TEST_F(CacheFileTest, BytesThatNothingDescribesAreGone) {
  CachedRanges::Run run;
  EXPECT_EQ(open()->append(0, bytesOf("bytes"), run), 0);
  const auto file = open();
  EXPECT_EQ(file->ranges().firstHeld(0), std::nullopt);
  EXPECT_EQ(file->size(), 0);
}

TEST_F(CacheFileTest, AnythingElseIsAnEmptyOne) {
  std::ofstream(path) << patternedBytes(100'000);
  const auto file = open();
  EXPECT_EQ(file->description(), std::nullopt);
  EXPECT_EQ(file->size(), 0);
  EXPECT_EQ(sizeOnDisk(), 0);
}

TEST_F(CacheFileTest, FailsWithTheSystemsReason) {
  int failure = 0;
  EXPECT_EQ(CacheFile::open(folder.path() + "/none/clip", failure), nullptr);
  EXPECT_EQ(failure, ENOENT);
  EXPECT_EQ(CacheFile::open(folder.path(), failure), nullptr);
  EXPECT_EQ(failure, EISDIR);
}

TEST_F(CacheFileTest, WritesToNoOtherFileThanItsOwn) {
  const std::string other = folder.file("other");
  std::ofstream(other) << "untouched";
  std::filesystem::create_symlink(other, path);
  int failure = 0;
  EXPECT_EQ(CacheFile::open(path, failure), nullptr);
  EXPECT_EQ(failure, ELOOP);
  EXPECT_EQ(std::filesystem::file_size(other), 9U);
  const std::string pipe = folder.file("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(CacheFile::open(pipe, failure), nullptr);
  EXPECT_EQ(failure, EINVAL);
}

TEST(CachedRanges, ARunOfNothingHoldsNothing) {
  CachedRanges ranges;
  ranges.add({10, 0, 0, 0});
  EXPECT_EQ(ranges.firstHeld(0), std::nullopt);
}

TEST(CachedRanges, KnowsWhatIsHeldAndWhatIsNot) {
  CachedRanges ranges;
  ranges.add({10, 5, 0, 0});
  ranges.add({20, 5, 0, 0});
  ranges.add({15, 5, 0, 0});
  ranges.add({40, 1, 0, 0});
  EXPECT_EQ(ranges.heldUntil(9), 9);
  EXPECT_EQ(ranges.heldUntil(10), 25);
  EXPECT_EQ(ranges.heldUntil(24), 25);
  EXPECT_EQ(ranges.heldUntil(25), 25);
  EXPECT_EQ(ranges.firstHeld(0), 10);
  EXPECT_EQ(ranges.firstHeld(12), 12);
  EXPECT_EQ(ranges.firstHeld(25), 40);
  EXPECT_EQ(ranges.firstHeld(41), std::nullopt);
}

TEST(CachedRanges, WhatOverlapsIsLeftOut) {
  CachedRanges ranges;
  ranges.add({10, 10, 1, 0});
  ranges.add({15, 10, 2, 0});
  ranges.add({5, 6, 3, 0});
  ranges.add({20, 0, 4, 0});
  EXPECT_EQ(ranges.firstHeld(0), 10);
  EXPECT_EQ(ranges.heldUntil(10), 20);
  EXPECT_EQ(ranges.runAt(19)->place, 1);
}

}  // namespace
}  // namespace zaffo::network
