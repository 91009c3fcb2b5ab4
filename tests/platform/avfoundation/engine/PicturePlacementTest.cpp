// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/PicturePlacement.h"

#include <gtest/gtest.h>

namespace zaffo {
namespace {

using Gravity = AVLayerVideoGravity;

/// 40 by 20, unless its pixels are not square.
CVPixelBufferPtr wide(double pixelAspectRatio = 1) {
  auto buffer = std::make_shared<CVPixelBuffer>();
  buffer->cropWidth = 40;
  buffer->cropHeight = 20;
  buffer->pixelAspectRatio = pixelAspectRatio;
  return buffer;
}

constexpr CGAffineTransform kQuarterTurn{0, 1, -1, 0, 0, 0};

void expectRect(CGRect actual, CGRect expected) {
  EXPECT_DOUBLE_EQ(actual.origin.x, expected.origin.x);
  EXPECT_DOUBLE_EQ(actual.origin.y, expected.origin.y);
  EXPECT_DOUBLE_EQ(actual.size.width, expected.size.width);
  EXPECT_DOUBLE_EQ(actual.size.height, expected.size.height);
}

TEST(PicturePlacement, FitsFillsOrStretchesThePictureAsTheGravitySays) {
  const CGRect bounds = CGRectMake(10, 10, 100, 100);
  struct Row {
    Gravity gravity;
    CGRect destination;
  };
  const Row rows[] = {{Gravity::ResizeAspect, CGRectMake(10, 35, 100, 50)},
                      {Gravity::ResizeAspectFill, CGRectMake(-40, 10, 200, 100)},
                      {Gravity::Resize, bounds}};
  for (const Row& row : rows) {
    expectRect(placePicture(wide(), CGAffineTransformIdentity, bounds, row.gravity).destination,
               row.destination);
  }
}

TEST(PicturePlacement, PixelsThatAreNotSquareCountAsWideAsTheyAre) {
  const auto placed = placePicture(wide(0.5), CGAffineTransformIdentity, CGRectMake(0, 0, 100, 200),
                                   Gravity::ResizeAspect);
  expectRect(placed.destination, CGRectMake(0, 50, 100, 100));
}

TEST(PicturePlacement, APictureThatIsTurnedTakesTheRoomItHasThen) {
  const auto placed =
      placePicture(wide(), kQuarterTurn, CGRectMake(0, 0, 100, 100), Gravity::ResizeAspect);
  EXPECT_EQ(placed.quarterTurns, 1);
  EXPECT_FALSE(placed.mirrored);
  expectRect(placed.destination, CGRectMake(25, 0, 50, 100));
}

TEST(PicturePlacement, TurnsAndFlipsAsTheTransformSays) {
  struct Row {
    CGAffineTransform transform;
    int quarterTurns;
    bool mirrored;
  };
  const Row rows[] = {{CGAffineTransformIdentity, 0, false},  {{0, 1, -1, 0, 0, 0}, 1, false},
                      {{-1, 0, 0, -1, 0, 0}, 2, false},       {{0, -1, 1, 0, 0, 0}, 3, false},
                      {{-1, 0, 0, 1, 0, 0}, 0, true},         {{1, 0, 0, -1, 0, 0}, 2, true},
                      {{0.9, 0.1, -0.1, 0.9, 0, 0}, 0, false}};
  for (const Row& row : rows) {
    const auto placed =
        placePicture(wide(), row.transform, CGRectMake(0, 0, 100, 100), Gravity::Resize);
    EXPECT_EQ(placed.quarterTurns, row.quarterTurns);
    EXPECT_EQ(placed.mirrored, row.mirrored);
  }
}

TEST(PicturePlacement, APictureOfNoSizeTakesTheWholeLayer) {
  const CGRect bounds = CGRectMake(0, 0, 100, 50);
  expectRect(placePicture(std::make_shared<CVPixelBuffer>(), CGAffineTransformIdentity, bounds,
                          Gravity::ResizeAspect)
                 .destination,
             bounds);
}

}  // namespace
}  // namespace zaffo
