// SPDX-License-Identifier: Apache-2.0
#include "PixelBuffers.h"
#include "WindowTestSupport.h"
#include "platform/coremedia/PixelConversion.h"
#include "platform/window/SoftwareRenderer.h"

namespace zaffo {
namespace {

using window::DrawCommand;
using window::MovingPicture;

/// One moving picture drawn alone.
CGImagePtr drawn(const CVPixelBufferPtr& buffer, int width, int height, int turns = 0) {
  window::DisplayList list;
  list.width = width;
  list.height = height;
  const PixelRect whole{0, 0, width, height};
  list.commands.push_back(DrawCommand{whole, whole, 1, MovingPicture{buffer, turns, false}});
  std::vector<uint8_t> pixels(std::size_t{4} * width * height);
  window::SoftwareRenderer().draw(list, Bitmap{pixels.data(), 4 * width, width, height});
  return std::make_shared<const CGImage>(width, height, std::size_t{4} * width, std::move(pixels));
}

const std::vector<CVPixelFormat> kColorFormats{
    CVPixelFormat::I420,    CVPixelFormat::I422,    CVPixelFormat::I444, CVPixelFormat::I420P10,
    CVPixelFormat::I422P10, CVPixelFormat::I444P10, CVPixelFormat::NV12, CVPixelFormat::P010,
};
const std::vector<Pixel> kColors{
    kBlack,  kWhite,          kRed,          kGreen,        kBlue,
    kYellow, {128, 128, 128}, {200, 60, 30}, {12, 99, 201}, {30, 250, 180}};

/// Every format, matrix and range that a decoder may hand over.
class EveryPixelFormat
    : public testing::TestWithParam<std::tuple<CVPixelFormat, CVColorMatrix, CVColorRange>> {
 protected:
  [[nodiscard]] static BufferKind kind() {
    return {std::get<0>(GetParam()), std::get<1>(GetParam()), std::get<2>(GetParam())};
  }
};

TEST_P(EveryPixelFormat, ShowsTheColoursThatWereStored) {
  for (const Pixel& color : kColors) {
    const CGImagePtr image =
        drawn(makeBuffer(kind(), 16, 16, [&](int, int) { return color; }), 16, 16);
    std::ostringstream name;
    name << color;
    expectNear(pixelAt(image, 0, 0), color, 2, name.str());
    expectNear(pixelAt(image, 15, 15), color, 2, name.str());
  }
}

TEST_P(EveryPixelFormat, KeepsEachQuarterInItsPlaceAtOddSizes) {
  for (const auto& [width, height] : {std::pair{17, 31}, {33, 9}, {405, 719}}) {
    const CGImagePtr image = drawn(makeQuarters(36, 20, kind()), width, height);
    const std::string name = std::to_string(width) + "x" + std::to_string(height);
    expectNear(pixelAt(image, 0, 0), kRed, 2, name);
    expectNear(pixelAt(image, width - 1, 0), kGreen, 2, name);
    expectNear(pixelAt(image, 0, height - 1), kBlue, 2, name);
    expectNear(pixelAt(image, width - 1, height - 1), kYellow, 2, name);
  }
}

TEST_P(EveryPixelFormat, ReadsPicturesOfOddSizes) {
  const auto color = [](int x, int) { return x < 6 ? kRed : kBlue; };
  const CGImagePtr image = drawn(makeBuffer(kind(), 13, 7, color), 13, 7);
  expectNear(pixelAt(image, 0, 6), kRed, 2);
  expectNear(pixelAt(image, 12, 6), kBlue, 2);
}

TEST_P(EveryPixelFormat, TakesChromaFromWhereTheBufferSaysThatItLies) {
  using enum CVChromaSite;
  const auto waves = [](int x, int y) {
    return Pixel{128 + static_cast<int>(90 * std::sin(x / 3.0)), 128,
                 128 + static_cast<int>(90 * std::sin(y / 3.0))};
  };
  for (const CVChromaSite across : {First, Middle, Second}) {
    for (const CVChromaSite down : {First, Middle, Second}) {
      CVPixelBuffer buffer = *makeBuffer(kind(), 25, 19, waves);
      buffer.chromaSiteX = across;
      buffer.chromaSiteY = down;
      std::vector<uint8_t> converted(25 * 19 * 4);
      convertToBGRA(buffer, converted.data(), 100);
      const auto expected = std::make_shared<const CGImage>(25, 19, 100, std::move(converted));
      const CGImagePtr image = drawn(std::make_shared<const CVPixelBuffer>(buffer), 25, 19);
      for (int n = 0; n < 25 * 19; ++n) {
        expectNear(pixelAt(image, n % 25, n / 25), pixelAt(expected, n % 25, n / 25), 2);
      }
    }
  }
}

TEST_P(EveryPixelFormat, CropsAtOddEdgesToo) {
  PixelBufferPainter painter(kind(), 24, 24);
  painter.crop(5, 3, 11, 13);
  const auto buffer = painter.paint([](int x, int y) {
    // A margin covers the chroma that the crop's edge shares with its outside.
    return x >= 4 && x < 16 && y >= 2 && y < 16 ? kGreen : kRed;
  });
  const CGImagePtr image = drawn(buffer, 22, 26);
  for (const int x : {0, 11, 21}) {
    for (const int y : {0, 13, 25}) expectNear(pixelAt(image, x, y), kGreen, 2);
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, EveryPixelFormat,
    testing::Combine(testing::ValuesIn(kColorFormats),
                     testing::Values(CVColorMatrix::BT601, CVColorMatrix::BT709,
                                     CVColorMatrix::BT2020),
                     testing::Values(CVColorRange::Limited, CVColorRange::Full)));

TEST(PixelFormat, ShowsGrayAsGrayInBothRanges) {
  for (const auto range : {CVColorRange::Limited, CVColorRange::Full}) {
    const BufferKind kind{CVPixelFormat::Gray8, CVColorMatrix::BT601, range};
    for (const int level : {0, 77, 255}) {
      const Pixel gray{level, level, level};
      const auto buffer = makeBuffer(kind, 8, 8, [&](int, int) { return gray; });
      expectNear(pixelAt(drawn(buffer, 5, 5), 2, 2), gray, 1);
    }
  }
}

TEST(PixelFormat, DrawsBGRAWithItsAlpha) {
  const BufferKind kind{CVPixelFormat::BGRA};
  const auto buffer = makeBuffer(kind, 8, 8, [](int x, int) {
    return x < 4 ? Pixel{100, 0, 0, 100} : Pixel{0, 255, 0, 255};
  });
  const CGImagePtr image = drawn(buffer, 8, 8);
  EXPECT_EQ(pixelAt(image, 1, 1), (Pixel{100, 0, 0, 255}));
  EXPECT_EQ(pixelAt(image, 6, 1), kGreen);
}

TEST(PixelFormat, ScalesSmoothlyWithoutShiftingThePicture) {
  const BufferKind kind{CVPixelFormat::Gray8, CVColorMatrix::BT601, CVColorRange::Full};
  // A ramp stays a ramp: each output pixel has the brightness of its own centre.
  const auto ramp = makeBuffer(kind, 128, 4, [](int x, int) { return Pixel{2 * x, 2 * x, 2 * x}; });
  for (const int width : {64, 72, 200, 256}) {
    const CGImagePtr image = drawn(ramp, width, 4);
    for (int x = 2; x < width - 2; ++x) {
      const double centre = (x + 0.5) * 128 / width - 0.5;
      ASSERT_NEAR(pixelAt(image, x, 1).red, 2 * centre, 1.1) << width << " at " << x;
    }
  }
}

TEST(PixelFormat, TurnsAreExactCopiesOfTheUprightPicture) {
  const auto buffer = makeBuffer({}, 40, 24, [](int x, int y) {
    return Pixel{(x * 37) % 256, (y * 53) % 256, (x * y) % 256};
  });
  const CGImagePtr upright = drawn(buffer, 40, 24), right = drawn(buffer, 24, 40, 1),
                   over = drawn(buffer, 40, 24, 2), left = drawn(buffer, 24, 40, 3);
  for (int y = 0; y < 24; ++y) {
    for (int x = 0; x < 40; ++x) {
      const Pixel pixel = pixelAt(upright, x, y);
      ASSERT_EQ(pixelAt(right, 23 - y, x), pixel) << x << "," << y;
      ASSERT_EQ(pixelAt(over, 39 - x, 23 - y), pixel) << x << "," << y;
      ASSERT_EQ(pixelAt(left, y, 39 - x), pixel) << x << "," << y;
    }
  }
}

TEST(PixelFormat, TakesOnePixelAndHugeMagnifications) {
  const auto dot = makeBuffer({}, 1, 1, [](int, int) { return kBlue; });
  const CGImagePtr image = drawn(dot, 300, 200);
  expectNear(pixelAt(image, 299, 199), kBlue, 2);
}

}  // namespace
}  // namespace zaffo
