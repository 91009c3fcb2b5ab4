// SPDX-License-Identifier: Apache-2.0
#include "platform/foundation/Result.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace zaffo {
namespace {

struct Shape {
  virtual ~Shape() = default;
  [[nodiscard]] virtual int corners() const = 0;
};
struct Square final : Shape {
  [[nodiscard]] int corners() const override { return 4; }
};

Result<std::unique_ptr<Shape>> drawn(bool succeeds) {
  if (!succeeds) return NSError::create("drawing", 3);
  return std::make_unique<Square>();
}

TEST(Result, HoldsWhatTheOperationReturns) {
  const Result<std::string> result("text");
  ASSERT_TRUE(result);
  EXPECT_EQ(*result, "text");
  EXPECT_EQ(result->size(), 4u);
  EXPECT_EQ(result.error(), nullptr);
}

TEST(Result, HoldsTheErrorWhenThereIsNothingToReturn) {
  const NSErrorPtr error = NSError::create("drawing", 3);
  const Result<int> result(error);
  EXPECT_FALSE(result);
  EXPECT_EQ(result.error(), error);
}

TEST(Result, TakesWhatConvertsToItsValueAndGivesItAway) {
  auto result = drawn(true);
  ASSERT_TRUE(result);
  const std::unique_ptr<Shape> shape = *std::move(result);
  ASSERT_TRUE(shape);
  EXPECT_EQ(shape->corners(), 4);
}

TEST(Result, ItsValueCanBeChangedInPlace) {
  Result<std::string> result("text");
  *result += "s";
  result->push_back('!');
  EXPECT_EQ(*result, "texts!");
}

TEST(Result, AnotherValueMayTakeThePlaceOfAnError) {
  EXPECT_EQ(drawn(false).valueOr(nullptr), nullptr);
  EXPECT_NE(drawn(true).valueOr(nullptr), nullptr);
  EXPECT_EQ(drawn(false).valueOr(std::make_unique<Square>())->corners(), 4);
}

TEST(Result, AnErrorPassesFromOneOperationToTheNext) {
  const auto area = [](bool succeeds) -> Result<double> {
    const auto shape = drawn(succeeds);
    if (!shape) return shape.error();
    return (*shape)->corners() * 1.5;
  };
  EXPECT_EQ(*area(true), 6);
  ASSERT_TRUE(area(false).error());
  EXPECT_EQ(area(false).error()->code(), 3);
}

#ifndef NDEBUG
TEST(ResultDeathTest, AnErrorThatIsNoneIsRefused) {
  const NSErrorPtr none;
  EXPECT_DEATH((void)Result<int>(none), "");
}

TEST(ResultDeathTest, AnErrorHasNoValue) {
  const auto result = drawn(false);
  EXPECT_DEATH((void)*result, "");
}
#endif

}  // namespace
}  // namespace zaffo
