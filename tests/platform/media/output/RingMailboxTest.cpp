// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/RingMailbox.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <thread>
#include <vector>

#include "doubles/TestSeed.h"

namespace zaffo::media {
namespace {

constexpr int64_t kCapacity = 64;

class RingMailboxTest : public testing::Test {
 protected:
  /// Takes what was posted last, as a reader that has none.
  const FrameRing* takeAndGiveBack() {
    const FrameRing* const ring = box_.take();
    if (ring) box_.giveBack(*ring);
    return ring;
  }

  RingMailbox box_{kCapacity};
};

TEST_F(RingMailboxTest, HoldsNothingBeforeTheFirstPost) {
  EXPECT_FALSE(box_.holdsRing());
  EXPECT_EQ(box_.take(), nullptr);
  EXPECT_TRUE(box_.isCalledOff()) << "nothing was posted";
}

TEST_F(RingMailboxTest, TheReaderTakesARingOnceAsItWasPosted) {
  FrameRing& posted = box_.post(1000);
  EXPECT_TRUE(box_.holdsRing());
  const FrameRing* const taken = box_.take();
  EXPECT_EQ(taken, &posted);
  EXPECT_EQ(taken->start(), 1000);
  EXPECT_EQ(taken->end(), 1000) << "it is empty";
  EXPECT_FALSE(box_.holdsRing());
  EXPECT_EQ(box_.take(), nullptr);
}

TEST_F(RingMailboxTest, TheWriterFillsARingThatTheReaderHas) {
  FrameRing& posted = box_.post(0);
  const FrameRing* const taken = box_.take();
  ASSERT_EQ(posted.write(std::vector<float>{0.25f, 0.75f}, 0), 1);
  EXPECT_EQ(taken->end(), 1);
  EXPECT_EQ(taken->contiguous(0, 1)[1], 0.75f);
}

TEST_F(RingMailboxTest, ARingThatWasNotTakenGivesWayToTheNext) {
  FrameRing& first = box_.post(10);
  FrameRing& second = box_.post(20);
  EXPECT_EQ(&first, &second) << "nobody has it";
  const FrameRing* const taken = box_.take();
  ASSERT_TRUE(taken);
  EXPECT_EQ(taken->start(), 20);
}

TEST_F(RingMailboxTest, WhatTheReaderHasIsLeftAloneUntilItIsGivenBack) {
  box_.post(10).write(std::vector<float>(2 * kCapacity, 1.0f), 10);
  const FrameRing* const taken = box_.take();
  for (int64_t first = 100; first < 110; ++first) EXPECT_NE(&box_.post(first), taken);
  EXPECT_EQ(taken->start(), 10);
  EXPECT_EQ(taken->end(), 10 + kCapacity);
  box_.giveBack(*taken);
  const FrameRing* const next = box_.take();
  EXPECT_NE(next, taken);
  EXPECT_EQ(&box_.post(200), taken);
}

TEST_F(RingMailboxTest, TwoRingsAreEnough) {
  std::set<const FrameRing*> rings;
  for (int post = 0; post < 20; ++post) {
    rings.insert(&box_.post(post));
    if (post % 3 != 0) takeAndGiveBack();
  }
  EXPECT_LE(rings.size(), 2u);
}

TEST_F(RingMailboxTest, CallingOffEndsWhatWasPostedBeforeAlone) {
  static_cast<void>(box_.post(0));
  const FrameRing* const first = box_.take();
  EXPECT_FALSE(box_.isCalledOff());
  EXPECT_FALSE(box_.isCalledOff(*first));
  box_.callOff();
  EXPECT_TRUE(box_.isCalledOff());
  EXPECT_TRUE(box_.isCalledOff(*first));
  box_.giveBack(*first);
  static_cast<void>(box_.post(0));
  const FrameRing* const second = box_.take();
  EXPECT_FALSE(box_.isCalledOff());
  EXPECT_FALSE(box_.isCalledOff(*second));
}

TEST_F(RingMailboxTest, ARingThatIsCalledOffInTheBoxIsTakenAllTheSame) {
  static_cast<void>(box_.post(0));
  box_.callOff();
  const FrameRing* const taken = box_.take();
  ASSERT_TRUE(taken);
  EXPECT_TRUE(box_.isCalledOff(*taken));
}

/// A writer that posts rings whose every frame holds the number of the first.
class RingMailboxStress : public RingMailboxTest {
 protected:
  static constexpr int kPosts = 3000;

  void write(std::mt19937& random) {
    for (int64_t first = 1; first <= kPosts; ++first) {
      FrameRing& ring = box_.post(first);
      rings_.insert(&ring);
      const std::vector<float> frames(16, static_cast<float>(first));
      for (int writes = std::uniform_int_distribution(0, 4)(random); writes > 0; --writes) {
        ring.write(frames, 0);
        if (writes % 2 == 0) std::this_thread::yield();
      }
    }
  }

  /// Reads what it has, again and again; the number of frames that are none of the ring's.
  static int wrongFrames(const FrameRing& ring) {
    int wrong = 0;
    const int64_t start = ring.start();
    for (int look = 0; look < 4; ++look) {
      for (int64_t frame = start; frame < ring.end(); ++frame) {
        if (ring.contiguous(frame, 1)[0] != static_cast<float>(start)) ++wrong;
      }
      if (ring.start() != start) ++wrong;
      std::this_thread::yield();
    }
    return wrong;
  }

  std::set<const FrameRing*> rings_;
};

TEST_F(RingMailboxStress, WhatTheReaderHasIsNeverWrittenAnew) {
  const unsigned seed = test::testSeed();
  SCOPED_TRACE(seed);
  std::atomic<bool> done{false};
  std::thread writer([&] {
    std::mt19937 random(seed);
    write(random);
    done.store(true);
  });
  int wrong = 0;
  int64_t latest = 0;
  const auto readOne = [&] {
    const FrameRing* const ring = box_.take();
    if (!ring) return;
    if (ring->start() <= latest) ++wrong;
    latest = ring->start();
    wrong += wrongFrames(*ring);
    box_.giveBack(*ring);
  };
  while (!done.load()) readOne();
  writer.join();
  readOne();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(latest, kPosts) << "the last one is never lost";
  EXPECT_LE(rings_.size(), 2u);
}

TEST_F(RingMailboxStress, CallsFromAnyThreadEndNothingThatIsPostedLater) {
  const unsigned seed = test::testSeed();
  SCOPED_TRACE(seed);
  std::atomic<bool> done{false};
  std::vector<std::thread> callers;
  for (int caller = 0; caller < 2; ++caller) {
    callers.emplace_back([&] {
      while (!done.load()) {
        box_.callOff();
        std::this_thread::yield();
      }
    });
  }
  std::thread reader([&] {
    while (!done.load()) takeAndGiveBack();
  });
  std::mt19937 random(seed);
  write(random);
  done.store(true);
  for (std::thread& caller : callers) caller.join();
  reader.join();
  static_cast<void>(box_.post(0));
  EXPECT_FALSE(box_.isCalledOff());
  const FrameRing* const last = box_.take();
  ASSERT_TRUE(last);
  EXPECT_FALSE(box_.isCalledOff(*last));
  box_.callOff();
  EXPECT_TRUE(box_.isCalledOff());
}

}  // namespace
}  // namespace zaffo::media
