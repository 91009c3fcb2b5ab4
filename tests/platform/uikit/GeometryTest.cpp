// SPDX-License-Identifier: Apache-2.0
#include "platform/uikit/Geometry.h"

#include <gtest/gtest.h>

#include <limits>

namespace zaffo {
namespace {

// Quarter turns clockwise, as seen with y down.
constexpr CGAffineTransform kQuarterTurn{0, 1, -1, 0, 0, 0};

TEST(Geometry, IntersectsRectangles) {
  EXPECT_EQ(CGRectIntersection(CGRectMake(0, 0, 10, 10), CGRectMake(5, 6, 10, 10)),
            CGRectMake(5, 6, 5, 4));
  EXPECT_EQ(CGRectIntersection(CGRectMake(0, 0, 10, 10), CGRectMake(2, 3, 4, 5)),
            CGRectMake(2, 3, 4, 5));
  EXPECT_EQ(CGRectIntersection(CGRectMake(0, 0, 10, 10), CGRectMake(10, 0, 5, 5)), CGRectZero);
  EXPECT_EQ(CGRectIntersection(CGRectMake(0, 0, 1, 1), CGRectMake(5, 5, 1, 1)), CGRectZero);
}

TEST(Geometry, ARectangleContainsItsUpperLeftEdgesOnly) {
  const CGRect rect = CGRectMake(1, 2, 3, 4);
  EXPECT_TRUE(CGRectContainsPoint(rect, {1, 2}));
  EXPECT_TRUE(CGRectContainsPoint(rect, {3.9, 5.9}));
  EXPECT_FALSE(CGRectContainsPoint(rect, {4, 3}));
  EXPECT_FALSE(CGRectContainsPoint(rect, {2, 6}));
  EXPECT_FALSE(CGRectContainsPoint(rect, {0.9, 3}));
}

TEST(Geometry, ARectangleWithoutAreaIsEmpty) {
  EXPECT_TRUE(CGRectIsEmpty(CGRectZero));
  EXPECT_TRUE(CGRectIsEmpty(CGRectMake(1, 1, 5, 0)));
  EXPECT_TRUE(CGRectIsEmpty(CGRectMake(1, 1, -5, 3)));
  EXPECT_TRUE(CGRectIsEmpty(CGRectMake(0, 0, std::numeric_limits<double>::quiet_NaN(), 3)));
  EXPECT_FALSE(CGRectIsEmpty(CGRectMake(1, 1, 5, 1)));
}

TEST(Geometry, TransformsPointsSizesAndRectangles) {
  const CGAffineTransform turnAndMove{0, 1, -1, 0, 100, 50};
  EXPECT_EQ(CGPointApplyAffineTransform({3, 4}, turnAndMove), (CGPoint{96, 53}));
  EXPECT_EQ(CGSizeApplyAffineTransform({3, 4}, turnAndMove), (CGSize{-4, 3}));
  EXPECT_EQ(CGRectApplyAffineTransform(CGRectMake(0, 0, 30, 40), turnAndMove),
            CGRectMake(60, 50, 40, 30));
  EXPECT_EQ(CGRectApplyAffineTransform(CGRectMake(1, 2, 3, 4), CGAffineTransformIdentity),
            CGRectMake(1, 2, 3, 4));
}

TEST(Geometry, ATurnedRectangleIsItsBoundingBox) {
  const double half = 0.5;
  const CGAffineTransform shear{1, half, 0, 1, 0, 0};
  EXPECT_EQ(CGRectApplyAffineTransform(CGRectMake(0, 0, 10, 10), shear), CGRectMake(0, 0, 10, 15));
}

TEST(Geometry, ConcatenatesFirstThenSecond) {
  const CGAffineTransform move{1, 0, 0, 1, 10, 0};
  const CGAffineTransform moveThenTurn = CGAffineTransformConcat(move, kQuarterTurn);
  const CGAffineTransform turnThenMove = CGAffineTransformConcat(kQuarterTurn, move);
  EXPECT_EQ(CGPointApplyAffineTransform({1, 2}, moveThenTurn), (CGPoint{-2, 11}));
  EXPECT_EQ(CGPointApplyAffineTransform({1, 2}, turnThenMove), (CGPoint{8, 1}));
  CGAffineTransform turned = CGAffineTransformIdentity;
  for (int i = 0; i < 4; ++i) turned = CGAffineTransformConcat(turned, kQuarterTurn);
  EXPECT_EQ(turned, CGAffineTransformIdentity);
}

}  // namespace
}  // namespace zaffo
