// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/StillImage.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <memory>
#include <vector>

#include "platform/foundation/AVError.h"

namespace zaffo::media {
namespace {

/// A picture of one colour, 8 bit, planes as large as the luma's.
CVPixelBufferPtr evenPicture(int y, int u, int v, CVColorMatrix matrix, CVColorRange range,
                             int width = 16, int height = 8) {
  const auto bytes = static_cast<std::size_t>(width * height);
  auto memory = std::make_shared<std::vector<uint8_t>>(bytes, static_cast<uint8_t>(y));
  memory->insert(memory->end(), bytes, static_cast<uint8_t>(u));
  memory->insert(memory->end(), bytes, static_cast<uint8_t>(v));
  auto buffer = std::make_shared<CVPixelBuffer>();
  buffer->format = CVPixelFormat::I444;
  buffer->width = buffer->cropWidth = width;
  buffer->height = buffer->cropHeight = height;
  for (std::size_t i = 0; i < 3; ++i) buffer->planes[i] = {memory->data() + i * bytes, width};
  buffer->matrix = matrix;
  buffer->range = range;
  buffer->owner = std::move(memory);
  return buffer;
}

/// Red, green and blue of a pixel.
std::array<int, 3> pixelAt(const CGImage& image, int x, int y) {
  const uint8_t* const p = image.pixels() + static_cast<std::size_t>(y) * image.stride() + 4 * x;
  return {p[2], p[1], p[0]};
}

void expectColour(const CGImage& image, std::array<int, 3> expected) {
  const std::array<int, 3> actual = pixelAt(image, image.width() / 2, image.height() / 2);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(actual[i], expected[i], 3) << i;
}

CGImagePtr scaled(const CVPixelBuffer& buffer, int width, int height) {
  auto image = makeImage(buffer, width, height);
  EXPECT_TRUE(image);
  return std::move(image).valueOr(nullptr);
}

TEST(StillImage, MakesAStillOfTheSizeAskedFor) {
  const auto picture = evenPicture(235, 128, 128, CVColorMatrix::BT601, CVColorRange::Limited);
  const CGImagePtr image = scaled(*picture, 40, 30);
  EXPECT_EQ(image->width(), 40);
  EXPECT_EQ(image->height(), 30);
  expectColour(*image, {255, 255, 255});
}

TEST(StillImage, HonoursTheRange) {
  const auto colourOf = [](CVColorRange range) {
    return pixelAt(*scaled(*evenPicture(126, 128, 128, CVColorMatrix::BT601, range), 8, 8), 4, 4);
  };
  EXPECT_NEAR(colourOf(CVColorRange::Full)[0], 126, 2);
  EXPECT_NEAR(colourOf(CVColorRange::Limited)[0], (126 - 16) * 255 / 219, 2);
}

TEST(StillImage, HonoursTheMatrix) {
  // Pure red as each matrix writes it.
  expectColour(
      *scaled(*evenPicture(81, 90, 240, CVColorMatrix::BT601, CVColorRange::Limited), 8, 8),
      {255, 0, 0});
  expectColour(
      *scaled(*evenPicture(63, 102, 240, CVColorMatrix::BT709, CVColorRange::Limited), 8, 8),
      {255, 0, 0});
  expectColour(
      *scaled(*evenPicture(74, 97, 240, CVColorMatrix::BT2020, CVColorRange::Limited), 8, 8),
      {255, 0, 0});
}

TEST(StillImage, ShowsTheCleanApertureAlone) {
  const auto whole = evenPicture(16, 128, 128, CVColorMatrix::BT601, CVColorRange::Limited, 16, 8);
  CVPixelBuffer cut = *whole;
  const std::array<uint8_t, 3> red{81, 90, 240};
  for (std::size_t plane = 0; plane < 3; ++plane) {
    auto* const samples = const_cast<uint8_t*>(cut.planes[plane].data);
    for (int y = 2; y < 6; ++y) std::fill_n(samples + y * 16 + 4, 8, red[plane]);
  }
  cut.cropLeft = 4;
  cut.cropTop = 2;
  cut.cropWidth = 8;
  cut.cropHeight = 4;
  const CGImagePtr image = scaled(cut, 8, 4);
  for (const int x : {0, 7}) {
    for (const int y : {0, 3}) {
      EXPECT_NEAR(pixelAt(*image, x, y)[0], 255, 3) << x << "," << y;
      EXPECT_NEAR(pixelAt(*image, x, y)[1], 0, 3) << x << "," << y;
    }
  }
}

TEST(StillImage, ThereIsNoStillWithoutASize) {
  const auto picture = evenPicture(16, 128, 128, CVColorMatrix::BT601, CVColorRange::Limited);
  for (const auto& [width, height] : {std::pair{0, 8}, std::pair{8, 0}, std::pair{-1, 8}}) {
    const NSErrorPtr error = makeImage(*picture, width, height).error();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), AVErrorNoImageAtTime);
  }
}

/// Three pixels by two: 1 2 3 above 4 5 6, told by their blue.
CGImagePtr numbered() {
  std::vector<uint8_t> pixels(6 * 4, 0);
  for (std::size_t i = 0; i < 6; ++i) pixels[4 * i] = static_cast<uint8_t>(i + 1);
  return std::make_shared<const CGImage>(3, 2, 12, std::move(pixels));
}

/// "142536" for a picture whose rows are 14, 25 and 36.
std::string numbersOf(const CGImage& image) {
  std::string numbers;
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) numbers += std::to_string(pixelAt(image, x, y)[2]);
  }
  return numbers;
}

TEST(StillImage, TurnsAndMirrorsAsATransformSays) {
  const struct {
    CGAffineTransform transform;
    int width;
    const char* numbers;
  } turns[] = {{{1, 0, 0, 1, 0, 0}, 3, "123456"},   {{0, 1, -1, 0, 2, 0}, 2, "415263"},
               {{-1, 0, 0, -1, 3, 2}, 3, "654321"}, {{0, -1, 1, 0, 0, 3}, 2, "362514"},
               {{-1, 0, 0, 1, 3, 0}, 3, "321654"},  {{1, 0, 0, -1, 0, 2}, 3, "456123"},
               {{0, 1, 1, 0, 0, 0}, 2, "142536"},   {{0, -1, -1, 0, 2, 3}, 2, "635241"}};
  for (const auto& turn : turns) {
    EXPECT_TRUE(isQuarterTurn(turn.transform)) << turn.numbers;
    const CGImagePtr image = turnedImage(numbered(), turn.transform);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width(), turn.width) << turn.numbers;
    EXPECT_EQ(numbersOf(*image), turn.numbers);
  }
}

TEST(StillImage, OtherTransformsLeaveAPictureAsItIs) {
  const double half = std::sqrt(0.5);
  for (const CGAffineTransform transform :
       {CGAffineTransform{half, half, -half, half, 0, 0}, CGAffineTransform{2, 0, 0, 2, 0, 0},
        CGAffineTransform{1, 1, 0, 1, 0, 0}, CGAffineTransform{0, 0, 0, 0, 0, 0}}) {
    EXPECT_FALSE(isQuarterTurn(transform));
    EXPECT_EQ(numbersOf(*turnedImage(numbered(), transform)), "123456");
  }
  EXPECT_EQ(turnedImage(nullptr, {0, 1, -1, 0, 2, 0}), nullptr);
}

}  // namespace
}  // namespace zaffo::media
