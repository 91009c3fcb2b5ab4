// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/Fiber.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace zaffo::media {
namespace {

TEST(Fiber, IsLeftInTheMiddleAndGoneOnWith) {
  const auto fiber = std::make_unique<Fiber>();
  std::string told;
  fiber->start([&] {
    for (const char part : {'a', 'b', 'c'}) {
      told += part;
      fiber->suspend();
    }
  });
  for (const char* soFar : {"a", "ab", "abc"}) {
    EXPECT_EQ(told, soFar);
    EXPECT_FALSE(fiber->hasEnded());
    fiber->resume();
  }
  EXPECT_TRUE(fiber->hasEnded());
}

TEST(Fiber, GoesOnWhereItWasOnAnyThread) {
  const auto fiber = std::make_unique<Fiber>();
  std::vector<std::thread::id> ran;
  const uint8_t* place = nullptr;
  bool isSamePlace = true;
  fiber->start([&] {
    uint8_t local = 0;
    place = &local;
    for (int i = 0; i < 3; ++i) {
      isSamePlace = isSamePlace && place == &local && local++ == i;
      ran.push_back(std::this_thread::get_id());
      fiber->suspend();
    }
  });
  for (int i = 0; i < 3; ++i) std::thread([&] { fiber->resume(); }).join();
  EXPECT_TRUE(fiber->hasEnded());
  EXPECT_TRUE(isSamePlace);
  ASSERT_EQ(ran.size(), 3u);
  EXPECT_EQ(ran[0], std::this_thread::get_id());
  EXPECT_NE(ran[1], ran[0]);
}

TEST(Fiber, OneThatIsGivenBackServesTheNextWork) {
  auto fiber = Fiber::take();
  int runs = 0;
  fiber->start([&] { ++runs; });
  const Fiber* const used = fiber.get();
  Fiber::giveBack(std::move(fiber));
  auto next = Fiber::take();
  EXPECT_EQ(next.get(), used);
  next->start([&] { ++runs; });
  EXPECT_EQ(runs, 2);
  Fiber::giveBack(std::move(next));
}

TEST(Fiber, ManyAreUnderWayAtOnce) {
  std::vector<std::unique_ptr<Fiber>> fibers;
  int sum = 0;
  for (int i = 0; i < 100; ++i) {
    fibers.push_back(Fiber::take());
    Fiber& fiber = *fibers.back();
    fiber.start([&fiber, &sum, i] {
      fiber.suspend();
      sum += i;
    });
  }
  EXPECT_EQ(sum, 0);
  for (auto& fiber : fibers) {
    fiber->resume();
    EXPECT_TRUE(fiber->hasEnded());
    Fiber::giveBack(std::move(fiber));
  }
  EXPECT_EQ(sum, 4950);
}

}  // namespace
}  // namespace zaffo::media
