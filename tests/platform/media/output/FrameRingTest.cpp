// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/FrameRing.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/media/output/NumberedFrames.h"

namespace zaffo::media {
namespace {

TEST(FrameRing, HoldsTheCapacityAskedForOrMore) {
  EXPECT_EQ(FrameRing(1000).capacity(), 1024);
  EXPECT_EQ(FrameRing(0).capacity(), 1);
}

TEST(FrameRing, GivesEachFrameBackUnderTheNumberItWasWrittenFor) {
  FrameRing ring(64);
  ring.restart(1000, 1);
  EXPECT_EQ(ring.write(numbered(1000, 64), 1000), 64);
  for (int64_t frame = 1000; frame < 1064; ++frame) {
    EXPECT_EQ(ring.contiguous(frame, 1)[0], static_cast<float>(frame));
    EXPECT_EQ(ring.contiguous(frame, 1)[1], -static_cast<float>(frame));
  }
}

TEST(FrameRing, TakesNoMoreThanFits) {
  FrameRing ring(64);
  ring.restart(0, 1);
  EXPECT_EQ(ring.write(numbered(0, 100), 0), 64);
  EXPECT_EQ(ring.writable(0), 0);
  EXPECT_EQ(ring.write(numbered(64, 1), 0), 0);
  EXPECT_EQ(ring.writable(10), 10);
  EXPECT_EQ(ring.write(numbered(64, 36), 10), 10);
  EXPECT_EQ(ring.end(), 74);
}

TEST(FrameRing, DropsFramesThatTheConsumerHasPassed) {
  FrameRing ring(64);
  ring.restart(0, 1);
  EXPECT_EQ(ring.writable(1000), 1064);
  EXPECT_EQ(ring.write(numbered(0, 1010), 1000), 1010);
  EXPECT_EQ(ring.end(), 1010);
  EXPECT_EQ(ring.contiguous(1000, 1)[0], 1000.0f);
  EXPECT_EQ(ring.contiguous(1009, 1)[0], 1009.0f);
}

TEST(FrameRing, ARestartForgetsWhatWasWritten) {
  FrameRing ring(64);
  ring.restart(0, 1);
  ring.write(numbered(0, 64), 0);
  ring.restart(500, 2);
  EXPECT_EQ(ring.start(), 500);
  EXPECT_EQ(ring.end(), 500);
  EXPECT_EQ(ring.writable(0), 64);
}

TEST(FrameRing, LosesNothingBetweenTwoThreads) {
  constexpr int64_t kFrames = 20'000;
  FrameRing ring(256);
  ring.restart(0, 1);
  std::atomic<int64_t> consumed{0};
  std::thread producer([&] {
    int64_t next = 0;
    while (next < kFrames) {
      const int64_t count = std::min<int64_t>(1 + next % 97, kFrames - next);
      next += ring.write(numbered(next, count), consumed.load());
    }
  });
  int64_t wrong = 0;
  for (int64_t frame = 0; frame < kFrames;) {
    const int64_t end = ring.end();
    for (; frame < end; ++frame) {
      if (ring.contiguous(frame, 1)[0] != static_cast<float>(frame)) ++wrong;
    }
    consumed.store(frame);
    std::this_thread::yield();
  }
  producer.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace zaffo::media
