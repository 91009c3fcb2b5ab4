// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/RenderGate.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "doubles/TestSeed.h"

namespace zaffo::media {
namespace {

constexpr RenderGate::Owner kFirst = 1;
constexpr RenderGate::Owner kSecond = 2;
constexpr RenderGate::Owner kLargest = (1u << 24) - 1;

TEST(RenderGate, LetsNobodyInButTheOwner) {
  RenderGate gate;
  gate.passTo(kFirst);
  EXPECT_FALSE(gate.tryEnter(kSecond));
  ASSERT_TRUE(gate.tryEnter(kFirst));
  gate.leave();
  gate.passTo(kSecond);
  EXPECT_FALSE(gate.tryEnter(kFirst));
  EXPECT_TRUE(gate.tryEnter(kSecond));
}

TEST(RenderGate, LetsTheOwnerInOnceAtATime) {
  RenderGate gate;
  gate.passTo(kFirst);
  ASSERT_TRUE(gate.tryEnter(kFirst));
  EXPECT_FALSE(gate.tryEnter(kFirst));
  gate.leave();
  EXPECT_TRUE(gate.tryEnter(kFirst));
}

TEST(RenderGate, KnowsOwnersOfEveryNumberApart) {
  RenderGate gate;
  gate.passTo(kLargest);
  EXPECT_FALSE(gate.tryEnter(kLargest - 1));
  ASSERT_TRUE(gate.tryEnter(kLargest));
  gate.leave();
  EXPECT_TRUE(gate.tryEnter(kLargest));
}

TEST(RenderGate, TheRightIsPassedOnOnlyWhenTheRenderUnderWayIsOver) {
  RenderGate gate;
  gate.passTo(kFirst);
  ASSERT_TRUE(gate.tryEnter(kFirst));
  std::atomic<bool> begun{false}, passed{false};
  std::thread control([&] {
    begun.store(true);
    gate.passTo(kSecond);
    passed.store(true);
  });
  while (!begun.load()) std::this_thread::yield();
  bool tooEarly = false;
  for (int i = 0; i < 1000 && !tooEarly; ++i) {
    std::this_thread::yield();
    tooEarly = passed.load() || gate.tryEnter(kSecond);
  }
  gate.leave();
  control.join();
  EXPECT_FALSE(tooEarly);
  EXPECT_TRUE(gate.tryEnter(kSecond));
}

TEST(RenderGate, NothingIsUnderWayBetweenTwoRenders) {
  RenderGate gate;
  gate.passTo(kFirst);
  EXPECT_TRUE(gate.hasPassed(gate.ticket()));
  ASSERT_TRUE(gate.tryEnter(kFirst));
  gate.leave();
  EXPECT_TRUE(gate.hasPassed(gate.ticket()));
}

TEST(RenderGate, ARenderHasPassedOnceItIsLeft) {
  RenderGate gate;
  gate.passTo(kFirst);
  ASSERT_TRUE(gate.tryEnter(kFirst));
  const uint64_t ticket = gate.ticket();
  EXPECT_FALSE(gate.hasPassed(ticket));
  gate.leave();
  EXPECT_TRUE(gate.hasPassed(ticket));
}

TEST(RenderGate, ALaterRenderIsNotTakenForTheOneThatPassed) {
  RenderGate gate;
  gate.passTo(kFirst);
  ASSERT_TRUE(gate.tryEnter(kFirst));
  const uint64_t ticket = gate.ticket();
  gate.leave();
  ASSERT_TRUE(gate.tryEnter(kFirst));
  EXPECT_TRUE(gate.hasPassed(ticket));
  gate.leave();
  gate.passTo(kSecond);
  gate.passTo(kFirst);
  ASSERT_TRUE(gate.tryEnter(kFirst));
  EXPECT_TRUE(gate.hasPassed(ticket));
}

TEST(RenderGate, ATicketTakenBetweenTwoRendersStaysPassedDuringTheNext) {
  RenderGate gate;
  gate.passTo(kFirst);
  const uint64_t ticket = gate.ticket();
  ASSERT_TRUE(gate.tryEnter(kFirst));
  EXPECT_TRUE(gate.hasPassed(ticket));
}

/// Devices of which each tries to render on a thread of its own.
class RenderGateStress : public testing::Test {
 protected:
  static constexpr int kDevices = 3;

  ~RenderGateStress() override { stop(); }

  /// `render` runs inside the gate.
  template <typename Render>
  void start(const Render& render) {
    for (int i = 0; i < kDevices; ++i) {
      devices_.emplace_back([this, i, render] {
        while (!done_.load()) {
          if (gate.tryEnter(ownerOf(i))) {
            render(i);
            gate.leave();
          }
          std::this_thread::yield();
        }
      });
    }
  }
  void stop() {
    done_.store(true);
    for (std::thread& device : devices_) device.join();
    devices_.clear();
  }
  static RenderGate::Owner ownerOf(int device) {
    return static_cast<RenderGate::Owner>(device) + kFirst;
  }

  RenderGate gate;
  const unsigned seed = test::testSeed();
  std::mt19937 random{seed};

 private:
  std::atomic<bool> done_{false};
  std::vector<std::thread> devices_;
};

TEST_F(RenderGateStress, OnceTheRightWasPassedOnTheFormerOwnerIsOut) {
  SCOPED_TRACE(seed);
  std::array<std::atomic<bool>, kDevices> inside{};
  std::atomic<int> trespasses{0};
  int64_t renders = 0;  // a plain number, whose every change is seen by the next who enters
  start([&](int device) {
    inside[static_cast<size_t>(device)].store(true);
    for (int other = 0; other < kDevices; ++other) {
      if (other != device && inside[static_cast<size_t>(other)].load()) ++trespasses;
    }
    ++renders;
    inside[static_cast<size_t>(device)].store(false);
  });
  for (int i = 0; i < 400; ++i) {
    const int next = std::uniform_int_distribution(0, kDevices - 1)(random);
    gate.passTo(ownerOf(next));
    for (int other = 0; other < kDevices; ++other) {
      if (other != next && inside[static_cast<size_t>(other)].load()) ++trespasses;
    }
    if (i % 16 == 0) std::this_thread::yield();
  }
  gate.passTo(ownerOf(0));
  while (!inside[0].load()) std::this_thread::yield();
  stop();
  EXPECT_EQ(trespasses, 0);
  EXPECT_GT(renders, 0);
}

TEST_F(RenderGateStress, WhatWasReplacedBeforeATicketIsOutOfHandsOnceThatHasPassed) {
  SCOPED_TRACE(seed);
  struct Shared {
    std::atomic<bool> freed{false};
  };
  constexpr int kChanges = 400;
  std::vector<std::unique_ptr<Shared>> all;
  for (int i = 0; i <= kChanges; ++i) all.push_back(std::make_unique<Shared>());
  std::atomic<Shared*> published{all[0].get()};
  std::atomic<int> readAfterFree{0};
  std::atomic<int> reads{0};
  start([&](int) {
    const Shared& read = *published.load();
    for (int i = 0; i < 50; ++i) {
      if (read.freed.load()) ++readAfterFree;
    }
    ++reads;
  });
  gate.passTo(kFirst);
  for (int i = 1; i <= kChanges; ++i) {
    Shared* const former = published.exchange(all[static_cast<size_t>(i)].get());
    const uint64_t ticket = gate.ticket();
    if (std::uniform_int_distribution(0, 9)(random) == 0) gate.passTo(ownerOf(i % kDevices));
    while (!gate.hasPassed(ticket)) std::this_thread::yield();
    former->freed.store(true);
  }
  while (reads.load() == 0) std::this_thread::yield();
  stop();
  EXPECT_EQ(readAfterFree, 0);
}

}  // namespace
}  // namespace zaffo::media
