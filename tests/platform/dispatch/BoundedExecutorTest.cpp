// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/BoundedExecutor.h"

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <utility>
#include <vector>

namespace zaffo {
namespace {

/// Runs what it was handed one piece at a time, when the test says so.
class HeldExecutor final : public Executor {
 public:
  void execute(std::shared_ptr<Runnable> work) override { handed_.push_back(std::move(work)); }
  [[nodiscard]] bool shouldYield() const override { return isWanted; }

  [[nodiscard]] std::size_t handed() const { return handed_.size(); }
  void runFirst() {
    const auto work = std::move(handed_.front());
    handed_.pop_front();
    work->run();
  }

  bool isWanted = false;

 private:
  std::deque<std::shared_ptr<Runnable>> handed_;
};

class Piece final : public Runnable {
 public:
  explicit Piece(std::function<void()> body) : body_(std::move(body)) {}
  void run() override { body_(); }

 private:
  const std::function<void()> body_;
};

class BoundedExecutorTest : public testing::Test {
 protected:
  std::shared_ptr<Runnable> piece(int number) {
    return std::make_shared<Piece>([this, number] { ran_.push_back(number); });
  }

  HeldExecutor inner_;
  BoundedExecutor bounded_{inner_, 2};
  std::vector<int> ran_;
};

TEST_F(BoundedExecutorTest, LetsNoMoreThroughAtATimeAndTheRestInOrder) {
  for (int i = 0; i < 5; ++i) bounded_.execute(piece(i));
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(inner_.handed(), i < 4 ? 2u : 1u) << i;
    inner_.runFirst();
  }
  EXPECT_EQ(ran_, (std::vector{0, 1, 2, 3, 4}));
  EXPECT_EQ(inner_.handed(), 0u);
}

TEST_F(BoundedExecutorTest, LetsAsManyThroughAfterAPauseAsBefore) {
  for (int round = 0; round < 3; ++round) {
    for (int i = 0; i < 3; ++i) bounded_.execute(piece(i));
    EXPECT_EQ(inner_.handed(), 2u);
    while (inner_.handed() > 0) inner_.runFirst();
  }
  EXPECT_EQ(ran_.size(), 9u);
}

TEST_F(BoundedExecutorTest, WorkThatQueuesUpAgainComesAfterWhatWaits) {
  std::shared_ptr<Runnable> again = piece(9);
  bounded_.execute(std::make_shared<Piece>([&] {
    ran_.push_back(0);
    bounded_.execute(again);
  }));
  for (int i = 1; i < 4; ++i) bounded_.execute(piece(i));
  while (inner_.handed() > 0) inner_.runFirst();
  EXPECT_EQ(ran_, (std::vector{0, 1, 2, 3, 9}));
}

TEST_F(BoundedExecutorTest, AsksToYieldWhileWorkWaitsHereOrThere) {
  bounded_.execute(piece(0));
  bounded_.execute(piece(1));
  EXPECT_FALSE(bounded_.shouldYield());
  bounded_.execute(piece(2));
  EXPECT_TRUE(bounded_.shouldYield());
  inner_.runFirst();
  EXPECT_FALSE(bounded_.shouldYield());
  inner_.isWanted = true;
  EXPECT_TRUE(bounded_.shouldYield());
}

TEST_F(BoundedExecutorTest, WorkThatWaitsOutsideLetsOneMoreThroughUntilItIsBack) {
  bounded_.execute(std::make_shared<Piece>([this] {
    BoundedExecutor::beginWait();
    EXPECT_EQ(inner_.handed(), 2u) << "the second, and one in place of this";
    BoundedExecutor::endWait();
  }));
  for (int i = 1; i < 5; ++i) bounded_.execute(piece(i));
  inner_.runFirst();
  EXPECT_EQ(inner_.handed(), 2u) << "no third is let through now";
  while (inner_.handed() > 0) inner_.runFirst();
  EXPECT_EQ(ran_, (std::vector{1, 2, 3, 4}));
  for (int i = 5; i < 8; ++i) bounded_.execute(piece(i));
  EXPECT_EQ(inner_.handed(), 2u) << "the bound holds as before";
}

TEST_F(BoundedExecutorTest, AWaitCountsInEachBoundThatLiesWithinAnother) {
  BoundedExecutor narrow(bounded_, 1);
  narrow.execute(std::make_shared<Piece>([this] {
    BoundedExecutor::beginWait();
    EXPECT_EQ(inner_.handed(), 2u);
    BoundedExecutor::endWait();
  }));
  narrow.execute(piece(1));
  bounded_.execute(piece(2));
  EXPECT_EQ(inner_.handed(), 2u);
  inner_.runFirst();
  while (inner_.handed() > 0) inner_.runFirst();
  EXPECT_EQ(ran_, (std::vector{2, 1}));
}

TEST_F(BoundedExecutorTest, AWaitOfWorkThatWasNotLetThroughHereChangesNothing) {
  BoundedExecutor::beginWait();
  BoundedExecutor::endWait();
  for (int i = 0; i < 3; ++i) bounded_.execute(piece(i));
  EXPECT_EQ(inner_.handed(), 2u);
}

TEST_F(BoundedExecutorTest, LetsGoOfWorkBeforeTheNextOneIsLetThrough) {
  auto held = std::make_shared<int>(0);
  const std::weak_ptr<int> weakHeld = held;
  bounded_.execute(std::make_shared<Piece>([held = std::move(held)] {}));
  inner_.runFirst();
  EXPECT_TRUE(weakHeld.expired());
}

}  // namespace
}  // namespace zaffo
