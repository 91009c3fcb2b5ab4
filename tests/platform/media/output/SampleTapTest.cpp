// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/SampleTap.h"

#include <gtest/gtest.h>

#include <random>
#include <thread>
#include <vector>

#include "doubles/TestSeed.h"
#include "platform/media/output/NumberedFrames.h"

namespace zaffo::media {
namespace {

void push(SampleTap& tap, int64_t first, int64_t count) {
  tap.push(first, numbered(first, count));
}

struct Taken {
  int64_t first = 0;
  std::vector<float> frames;
};

Taken take(SampleTap& tap) {
  Taken taken;
  taken.first = tap.take(taken.frames);
  return taken;
}

TEST(SampleTap, GivesNothingWhenItIsEmpty) {
  SampleTap tap(64);
  EXPECT_TRUE(take(tap).frames.empty());
  push(tap, 5, 0);
  EXPECT_TRUE(take(tap).frames.empty());
}

TEST(SampleTap, JoinsWhatFollowsOneAnother) {
  SampleTap tap(64);
  push(tap, 100, 10);
  push(tap, 110, 20);
  const Taken taken = take(tap);
  EXPECT_EQ(taken.first, 100);
  EXPECT_EQ(taken.frames, numbered(100, 30));
  EXPECT_TRUE(take(tap).frames.empty());
}

TEST(SampleTap, AppendsToWhatTheReaderHas) {
  SampleTap tap(64);
  std::vector<float> frames = numbered(7, 1);
  push(tap, 8, 2);
  EXPECT_EQ(tap.take(frames), 8);
  EXPECT_EQ(frames, numbered(7, 3));
}

TEST(SampleTap, EndsATakeAtAGapInTheNumbers) {
  SampleTap tap(64);
  push(tap, 0, 10);
  push(tap, 15, 10);
  EXPECT_EQ(take(tap).frames, numbered(0, 10));
  const Taken second = take(tap);
  EXPECT_EQ(second.first, 15);
  EXPECT_EQ(second.frames, numbered(15, 10));
}

TEST(SampleTap, GoesRoundTheEndOfItsStorage) {
  SampleTap tap(50);
  for (int64_t first = 0; first < 1000; first += 35) {
    push(tap, first, 35);
    const Taken taken = take(tap);
    ASSERT_EQ(taken.first, first);
    ASSERT_EQ(taken.frames, numbered(first, 35));
  }
}

TEST(SampleTap, DropsWhatDoesNotFitAsAWholeAndGoesOnBehindIt) {
  SampleTap tap(30);
  push(tap, 0, 20);
  push(tap, 20, 11);
  push(tap, 31, 10);
  EXPECT_EQ(take(tap).frames, numbered(0, 20));
  const Taken behind = take(tap);
  EXPECT_EQ(behind.first, 31);
  EXPECT_EQ(behind.frames, numbered(31, 10));
}

TEST(SampleTap, FillsItsCapacityToTheLastFrame) {
  SampleTap tap(30);
  push(tap, 0, 30);
  push(tap, 30, 1);
  EXPECT_EQ(take(tap).frames, numbered(0, 30));
  push(tap, 31, 30);
  EXPECT_EQ(take(tap).frames, numbered(31, 30));
}

TEST(SampleTap, ManyShortPushesAreNotMixedUpWhenThereIsNoRoomToNoteThem) {
  constexpr int64_t kPushes = 5000;
  SampleTap tap(kPushes);
  for (int64_t i = 0; i < kPushes; ++i) push(tap, 2 * i, 1);
  int64_t next = 0;
  for (Taken taken = take(tap); !taken.frames.empty(); taken = take(tap)) {
    ASSERT_EQ(taken.first, next);
    ASSERT_EQ(taken.frames, numbered(next, 1));
    next += 2;
  }
  EXPECT_GT(next, kPushes);
  push(tap, 2 * kPushes, 3);
  EXPECT_EQ(take(tap).frames, numbered(2 * kPushes, 3));
}

TEST(SampleTap, EveryFrameArrivesUnderItsOwnNumberFromAnotherThread) {
  const unsigned seed = test::testSeed();
  SCOPED_TRACE(seed);
  constexpr int64_t kFrames = 100'000;
  SampleTap tap(1000);
  std::atomic<bool> done{false};
  std::thread renderer([&] {
    std::mt19937 random(seed);
    for (int64_t next = 0; next < kFrames;) {
      const int64_t count = std::uniform_int_distribution(1, 200)(random);
      push(tap, next, count);
      const bool skips = std::uniform_int_distribution(0, 3)(random) == 0;
      next += count + (skips ? count : 0);
      if (count % 4 == 0) std::this_thread::yield();
    }
    done.store(true);
  });
  int64_t wrong = 0, received = 0, last = -1;
  for (;;) {
    const bool wasDone = done.load();
    const Taken taken = take(tap);
    if (taken.frames.empty() && wasDone) break;
    if (taken.frames.empty()) std::this_thread::yield();
    const auto count = static_cast<int64_t>(taken.frames.size() / 2);
    if (count > 0 && taken.first <= last) ++wrong;
    if (taken.frames != numbered(taken.first, count)) ++wrong;
    if (count > 0) last = taken.first + count - 1;
    received += count;
  }
  renderer.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_GT(received, 0);
}

}  // namespace
}  // namespace zaffo::media
