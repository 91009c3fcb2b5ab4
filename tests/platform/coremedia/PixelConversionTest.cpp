// SPDX-License-Identifier: Apache-2.0
#include "platform/coremedia/PixelConversion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <utility>
#include <vector>

namespace zaffo {
namespace {

using enum CVPixelFormat;

constexpr CVPixelFormat kVideoFormats[] = {I420,    I422, I444, I420P10, I422P10,
                                           I444P10, NV12, P010, Gray8};

bool isTenBit(CVPixelFormat f) {
  return f == I420P10 || f == I422P10 || f == I444P10 || f == P010;
}
bool isHalvedAcross(CVPixelFormat f) {
  return f != I444 && f != I444P10 && f != Gray8;
}
bool isHalvedDown(CVPixelFormat f) {
  return f == I420 || f == I420P10 || f == NV12 || f == P010;
}

/// A picture as samples, and the same laid out as a buffer whose rows end where they must not be
/// read beyond: each plane is a block of its own, of the very size that it needs.
class Picture {
 public:
  Picture(CVPixelFormat format, int width, int height, uint32_t seed) {
    buffer.format = format;
    buffer.width = buffer.cropWidth = width;
    buffer.height = buffer.cropHeight = height;
    chromaWidth = isHalvedAcross(format) ? (width + 1) / 2 : width;
    chromaHeight = isHalvedDown(format) ? (height + 1) / 2 : height;
    std::mt19937 random(seed);
    const int most = isTenBit(format) ? 1023 : 255;
    const auto fill = [&](std::vector<int>& samples, int count) {
      samples.resize(static_cast<std::size_t>(count));
      for (int& sample : samples) sample = static_cast<int>(random() % (most + 1));
    };
    fill(luma, width * height);
    fill(u, chromaWidth * chromaHeight);
    fill(v, chromaWidth * chromaHeight);
    layOut();
  }

  void layOut() {
    setPlane(0, luma, buffer.width);
    if (buffer.format == NV12 || buffer.format == P010) {
      std::vector<int> pairs;
      for (std::size_t i = 0; i < u.size(); ++i) {
        pairs.push_back(u[i]);
        pairs.push_back(v[i]);
      }
      setPlane(1, pairs, 2 * chromaWidth);
    } else if (buffer.format != Gray8) {
      setPlane(1, u, chromaWidth);
      setPlane(2, v, chromaWidth);
    }
  }

  /// What the standards' formula gives for a pixel: blue, green, red.
  std::array<double, 3> exact(int x, int y) const {
    const double scale = isTenBit(buffer.format) ? 1023 : 255;
    const double unit = isTenBit(buffer.format) ? 4 : 1;
    const double middle = 128 * unit;
    const bool limited = buffer.range == CVColorRange::Limited;
    const double lumaSample = luma[static_cast<std::size_t>(y * buffer.width + x)];
    const double Y = limited ? (lumaSample - 16 * unit) / (219 * unit) : lumaSample / scale;
    const double chromaScale = limited ? 224 * unit : scale;
    const bool gray = buffer.format == Gray8;
    const double Cb = gray ? 0 : (chromaAt(u, x, y) - middle) / chromaScale;
    const double Cr = gray ? 0 : (chromaAt(v, x, y) - middle) / chromaScale;
    double kr = 0.2126, kb = 0.0722;
    if (buffer.matrix == CVColorMatrix::BT601) kr = 0.299, kb = 0.114;
    if (buffer.matrix == CVColorMatrix::BT2020) kr = 0.2627, kb = 0.0593;
    const double R = Y + 2 * (1 - kr) * Cr, B = Y + 2 * (1 - kb) * Cb;
    const double G = (Y - kr * R - kb * B) / (1 - kr - kb);
    const auto shown = [](double c) { return std::clamp(c, 0.0, 1.0) * 255; };
    return {shown(B), shown(G), shown(R)};
  }

  std::vector<uint8_t> convert(std::size_t padding = 0) const {
    const std::size_t stride = 4 * static_cast<std::size_t>(buffer.cropWidth) + padding;
    std::vector<uint8_t> pixels(stride * static_cast<std::size_t>(buffer.cropHeight), 77);
    convertToBGRA(buffer, pixels.data(), static_cast<std::ptrdiff_t>(stride));
    return pixels;
  }

  /// The greatest distance of a component from the formula.
  double greatestError() const {
    const std::vector<uint8_t> pixels = convert();
    double greatest = 0;
    for (int y = 0; y < buffer.cropHeight; ++y) {
      for (int x = 0; x < buffer.cropWidth; ++x) {
        const uint8_t* pixel = &pixels[static_cast<std::size_t>(4 * (y * buffer.cropWidth + x))];
        const auto wanted = exact(buffer.cropLeft + x, buffer.cropTop + y);
        for (std::size_t c = 0; c < 3; ++c) {
          greatest = std::max(greatest, std::fabs(pixel[c] - wanted[c]));
        }
        if (pixel[3] != 255) return 255;
      }
    }
    return greatest;
  }

  CVPixelBuffer buffer;
  int chromaWidth = 0, chromaHeight = 0;
  std::vector<int> luma, u, v;

 private:
  double sampleAt(const std::vector<int>& samples, int x, int y) const {
    x = std::clamp(x, 0, chromaWidth - 1);
    y = std::clamp(y, 0, chromaHeight - 1);
    return samples[static_cast<std::size_t>(y * chromaWidth + x)];
  }
  double acrossAt(const std::vector<int>& samples, int x, int y) const {
    if (!isHalvedAcross(buffer.format)) return sampleAt(samples, x, y);
    const auto [first, way] = placeOf(x, buffer.chromaSiteX);
    return sampleAt(samples, first, y) * (1 - way) + sampleAt(samples, first + 1, y) * way;
  }
  double chromaAt(const std::vector<int>& samples, int x, int y) const {
    if (!isHalvedDown(buffer.format)) return acrossAt(samples, x, y);
    const auto [first, way] = placeOf(y, buffer.chromaSiteY);
    return acrossAt(samples, x, first) * (1 - way) + acrossAt(samples, x, first + 1) * way;
  }
  /// The sample before a pixel, and how far from there to the next one the pixel is.
  static std::pair<int, double> placeOf(int pixel, CVChromaSite site) {
    const double toSample = site == CVChromaSite::First    ? 0
                            : site == CVChromaSite::Middle ? 0.5
                                                           : 1;
    const double place = (pixel - toSample) / 2;
    return {static_cast<int>(std::floor(place)), place - std::floor(place)};
  }

  void setPlane(std::size_t index, const std::vector<int>& samples, int perRow) {
    std::vector<uint8_t>& bytes = planes_[index];
    bytes.clear();
    const bool ten = isTenBit(buffer.format);
    for (const int sample : samples) {
      const int stored = buffer.format == P010 ? sample << 6 : sample;
      bytes.push_back(static_cast<uint8_t>(stored));
      if (ten) bytes.push_back(static_cast<uint8_t>(stored >> 8));
    }
    buffer.planes[index] = {bytes.data(), perRow * (ten ? 2 : 1)};
  }

  std::array<std::vector<uint8_t>, 3> planes_;
};

TEST(PixelConversion, IsWithinOneOfTheFormulaForEveryFormatMatrixAndRange) {
  for (const CVPixelFormat format : kVideoFormats) {
    for (const auto matrix : {CVColorMatrix::BT601, CVColorMatrix::BT709, CVColorMatrix::BT2020}) {
      for (const auto range : {CVColorRange::Limited, CVColorRange::Full}) {
        Picture picture(format, 150, 37, 3);
        picture.buffer.matrix = matrix;
        picture.buffer.range = range;
        EXPECT_LE(picture.greatestError(), 1.0)
            << "format " << static_cast<int>(format) << " matrix " << static_cast<int>(matrix)
            << " range " << static_cast<int>(range);
      }
    }
  }
}

TEST(PixelConversion, TakesChromaToLieWhereTheBufferSays) {
  using enum CVChromaSite;
  for (const CVPixelFormat format : kVideoFormats) {
    for (const CVChromaSite across : {First, Middle, Second}) {
      for (const CVChromaSite down : {First, Middle, Second}) {
        for (const int left : {0, 1}) {
          Picture picture(format, 133, 9, 6);
          picture.buffer.chromaSiteX = across;
          picture.buffer.chromaSiteY = down;
          picture.buffer.cropLeft = picture.buffer.cropTop = left;
          picture.buffer.cropWidth -= left;
          picture.buffer.cropHeight -= left;
          EXPECT_LE(picture.greatestError(), 1.0)
              << static_cast<int>(format) << ": " << static_cast<int>(across) << ", "
              << static_cast<int>(down);
        }
      }
    }
  }
}

TEST(PixelConversion, GivesPureBlackWhiteAndGraysTheirLevels) {
  for (const CVPixelFormat format : kVideoFormats) {
    for (const auto range : {CVColorRange::Limited, CVColorRange::Full}) {
      Picture picture(format, 256, 2, 1);
      picture.buffer.range = range;
      const int unit = isTenBit(format) ? 4 : 1;
      for (std::size_t i = 0; i < picture.luma.size(); ++i) {
        picture.luma[i] = static_cast<int>(i % 256) * unit;
      }
      std::fill(picture.u.begin(), picture.u.end(), 128 * unit);
      picture.v = picture.u;
      picture.layOut();
      const auto pixels = picture.convert();
      for (int x = 0; x < 256; ++x) {
        const uint8_t* pixel = &pixels[static_cast<std::size_t>(4 * x)];
        ASSERT_EQ(pixel[0], pixel[1]) << x;
        ASSERT_EQ(pixel[1], pixel[2]) << x;
        ASSERT_NEAR(pixel[0], picture.exact(x, 0)[0], 0.6) << x;
      }
    }
  }
}

TEST(PixelConversion, TakesAnySizeFromOnePixelOn) {
  for (const CVPixelFormat format : kVideoFormats) {
    for (const int width : {1, 2, 3, 63, 64, 65, 127, 129}) {
      for (const int height : {1, 2, 3, 5}) {
        EXPECT_LE(Picture(format, width, height, 9).greatestError(), 1.0)
            << static_cast<int>(format) << ": " << width << " x " << height;
      }
    }
  }
}

TEST(PixelConversion, ConvertsTheCleanApertureWhereverItLies) {
  for (const CVPixelFormat format : kVideoFormats) {
    for (const int left : {0, 1, 2, 7}) {
      for (const int top : {0, 1, 2, 3}) {
        Picture picture(format, 141, 11, 5);
        picture.buffer.cropLeft = left;
        picture.buffer.cropTop = top;
        picture.buffer.cropWidth = 141 - left - 3;
        picture.buffer.cropHeight = 11 - top - 2;
        EXPECT_LE(picture.greatestError(), 1.0) << static_cast<int>(format) << " " << left << top;
      }
    }
  }
}

TEST(PixelConversion, LeavesThePaddingOfTheDestinationAlone) {
  Picture picture(I420, 70, 3, 2);
  const auto pixels = picture.convert(8);
  for (std::size_t y = 0; y < 3; ++y) {
    for (std::size_t i = 0; i < 8; ++i) EXPECT_EQ(pixels[y * 288 + 280 + i], 77);
  }
}

TEST(PixelConversion, IgnoresTheBitsAboveTenSignificantOnes) {
  Picture picture(I444P10, 8, 1, 4);
  const auto clean = picture.convert();
  for (int& sample : picture.luma) sample |= 0x8400;
  picture.layOut();
  EXPECT_EQ(picture.convert(), clean);
}

TEST(PixelConversion, CopiesBGRAWithItsAlpha) {
  std::vector<uint8_t> bytes(4 * 5 * 3);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i);
  CVPixelBuffer buffer;
  buffer.format = BGRA;
  buffer.width = 5;
  buffer.height = 3;
  buffer.planes[0] = {bytes.data(), 20};
  buffer.cropLeft = 1;
  buffer.cropTop = 1;
  buffer.cropWidth = 2;
  buffer.cropHeight = 2;
  std::vector<uint8_t> pixels(16);
  convertToBGRA(buffer, pixels.data(), 8);
  EXPECT_EQ(pixels, (std::vector<uint8_t>{24, 25, 26, 27, 28, 29, 30, 31,  //
                                          44, 45, 46, 47, 48, 49, 50, 51}));
}

TEST(PixelConversion, ReadsRowsBottomUpForANegativeStride) {
  Picture upright(I444, 4, 3, 8);
  Picture flipped = upright;
  for (auto& plane : flipped.buffer.planes) {
    plane.data += 2 * plane.stride;
    plane.stride = -plane.stride;
  }
  const auto pixels = upright.convert(), turned = flipped.convert();
  for (std::size_t y = 0; y < 3; ++y) {
    EXPECT_TRUE(std::equal(&pixels[y * 16], &pixels[y * 16] + 16, &turned[(2 - y) * 16]));
  }
}

TEST(PixelConversion, WritesNothingWithoutAnApertureInsideThePicture) {
  const std::array<int, 4> apertures[] = {{0, 0, 0, 4},  {0, 0, 4, -1}, {-1, 0, 4, 4},
                                          {0, -1, 4, 4}, {5, 0, 4, 4},  {0, 5, 4, 4}};
  for (const auto& [left, top, width, height] : apertures) {
    Picture picture(I420, 8, 8, 1);
    picture.buffer.cropLeft = left;
    picture.buffer.cropTop = top;
    picture.buffer.cropWidth = width;
    picture.buffer.cropHeight = height;
    std::vector<uint8_t> pixels(64 * 4, 77);
    convertToBGRA(picture.buffer, pixels.data(), 32);
    EXPECT_EQ(pixels, std::vector<uint8_t>(64 * 4, 77));
  }
}

TEST(PixelConversion, WritesNothingWhenAPlaneIsMissing) {
  for (const CVPixelFormat format : {I420, NV12, Gray8, BGRA}) {
    Picture picture(I420, 8, 8, 1);
    picture.buffer.format = format;
    picture.buffer.planes[format == I420 ? 2 : format == NV12 ? 1 : 0].data = nullptr;
    std::vector<uint8_t> pixels(64 * 4, 77);
    convertToBGRA(picture.buffer, pixels.data(), 32);
    EXPECT_EQ(pixels, std::vector<uint8_t>(64 * 4, 77));
  }
}

}  // namespace
}  // namespace zaffo
