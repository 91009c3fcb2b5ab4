// SPDX-License-Identifier: Apache-2.0
#include "platform/network/ByteBudget.h"

#include <gtest/gtest.h>

namespace zaffo::network {
namespace {

struct Holder final : ByteBudget::Holder {
  void setByteBound(int64_t given) override { bound = given; }
  int64_t bound = 0;
};

TEST(ByteBudget, GivesEachEightMiBAndThirtyTwoToAll) {
  EXPECT_EQ(ByteBudget::kOfResource, 8 << 20);
  EXPECT_EQ(ByteBudget::kOfProcess, 32 << 20);
  ByteBudget budget;
  std::vector<std::shared_ptr<Holder>> holders;
  for (int i = 0; i < 16; ++i) {
    holders.push_back(std::make_shared<Holder>());
    budget.add(holders.back());
    if (i < 4) {
      EXPECT_EQ(holders.front()->bound, 8 << 20);
    }
  }
  for (const auto& holder : holders) EXPECT_EQ(holder->bound, 2 << 20);
}

TEST(ByteBudget, GivesTheOthersWhatOneThatLeavesHad) {
  ByteBudget budget(100, 80);
  const auto one = std::make_shared<Holder>();
  auto other = std::make_shared<Holder>();
  const auto third = std::make_shared<Holder>();
  budget.add(one);
  EXPECT_EQ(one->bound, 80);
  budget.add(other);
  budget.add(third);
  EXPECT_EQ(one->bound, 33);
  budget.remove(*third);
  EXPECT_EQ(one->bound, 50);
  EXPECT_EQ(third->bound, 33);
}

TEST(ByteBudget, HasTheKeeperMakeRoomWhenMoreIsCountedThanThereMayBe) {
  struct Keeper final : ByteBudget::Keeper {
    void makeRoom() override { ++calls; }
    int calls = 0;
  };
  ByteBudget budget(100, 80);
  const auto keeper = std::make_shared<Keeper>();
  budget.setKeeper(keeper);
  ByteBudget::Count one(budget);
  one.set(60);
  {
    ByteBudget::Count other(budget);
    other.set(40);
    other.makeRoom();
    EXPECT_EQ(keeper->calls, 0);
    other.set(41);
    other.makeRoom();
    EXPECT_EQ(keeper->calls, 1);
    EXPECT_EQ(budget.counted(), 101);
  }
  EXPECT_EQ(budget.counted(), 60);
}

}  // namespace
}  // namespace zaffo::network
