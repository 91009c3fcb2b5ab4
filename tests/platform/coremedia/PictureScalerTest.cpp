// SPDX-License-Identifier: Apache-2.0
#include "platform/coremedia/PictureScaler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "platform/coremedia/PixelConversion.h"

namespace zaffo {
namespace {

/// Pixels of BGRA, rows one after another.
struct Pixels {
  Pixels(int w, int h) : width(w), height(h), bytes(std::size_t{4} * w * h) {}
  [[nodiscard]] Bitmap bitmap() { return {bytes.data(), std::ptrdiff_t{4} * width, width, height}; }
  [[nodiscard]] Pixels part(const PixelRect& rect) {
    Pixels cut(rect.width, rect.height);
    for (int y = 0; y < rect.height; ++y) {
      const Bitmap row = bitmap().part({rect.x, rect.y + y, rect.width, 1});
      std::copy_n(row.pixels, std::size_t{4} * rect.width, cut.bitmap().row(y));
    }
    return cut;
  }
  int width, height;
  std::vector<uint8_t> bytes;
};

/// A picture of noise, with room around what is to be seen.
std::shared_ptr<CVPixelBuffer> noise(CVPixelFormat format, int width, int height,
                                     std::mt19937& random) {
  auto buffer = std::make_shared<CVPixelBuffer>();
  buffer->format = format;
  buffer->width = width + 4;
  buffer->height = height + 4;
  buffer->cropLeft = buffer->cropTop = 2;
  buffer->cropWidth = width;
  buffer->cropHeight = height;
  // As much for each plane as the largest takes: 4 bytes a pixel.
  const auto stride = std::size_t{4} * static_cast<std::size_t>(buffer->width);
  const std::size_t size = stride * static_cast<std::size_t>(buffer->height);
  auto memory = std::make_shared<std::vector<uint8_t>>(3 * size);
  std::generate(memory->begin(), memory->end(), [&] { return static_cast<uint8_t>(random()); });
  for (std::size_t plane = 0; plane < 3; ++plane) {
    buffer->planes[plane] = {memory->data() + plane * size, static_cast<std::ptrdiff_t>(stride)};
  }
  buffer->owner = memory;
  return buffer;
}

Pixels scaled(const CVPixelBuffer& picture, PictureLayout layout) {
  Pixels pixels(layout.part.width, layout.part.height);
  PictureScaler().scale(picture, layout, pixels.bitmap());
  return pixels;
}

Pixels whole(const CVPixelBuffer& picture, int width, int height, int turns, bool mirrored) {
  return scaled(picture, {width, height, turns, mirrored, {0, 0, width, height}});
}

/// `pixels` mirrored if so told, then turned clockwise.
Pixels turned(Pixels pixels, int turns, bool mirrored) {
  const auto redraw = [&](int width, int height, const auto& source) {
    Pixels next(width, height);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const auto [fromX, fromY] = source(x, y);
        const Bitmap from = pixels.bitmap().part({fromX, fromY, 1, 1});
        std::copy_n(from.pixels, 4, next.bitmap().part({x, y, 1, 1}).pixels);
      }
    }
    pixels = std::move(next);
  };
  const auto flipped = [&](int x, int y) { return std::pair(pixels.width - 1 - x, y); };
  const auto right = [&](int x, int y) { return std::pair(y, pixels.height - 1 - x); };
  if (mirrored) redraw(pixels.width, pixels.height, flipped);
  for (; turns > 0; --turns) redraw(pixels.height, pixels.width, right);
  return pixels;
}

class PictureScalerTest : public testing::TestWithParam<CVPixelFormat> {
 protected:
  int upTo(int most) { return 1 + static_cast<int>(random_() % static_cast<unsigned>(most)); }

  std::mt19937 random_{20};
};

INSTANTIATE_TEST_SUITE_P(Formats, PictureScalerTest,
                         testing::Values(CVPixelFormat::I420, CVPixelFormat::I422P10,
                                         CVPixelFormat::NV12, CVPixelFormat::P010,
                                         CVPixelFormat::Gray8, CVPixelFormat::BGRA));

TEST_P(PictureScalerTest, TurnsAPictureAsItsPixelsAreTurned) {
  for (int round = 0; round < 40; ++round) {
    const auto picture = noise(GetParam(), upTo(60), upTo(60), random_);
    const int turns = round % 4;
    const bool mirrored = round % 8 >= 4;
    // At its own size: what lies between two pixels is rounded by where it lies.
    const int width = picture->cropWidth, height = picture->cropHeight;
    const Pixels upright = whole(*picture, width, height, 0, false);
    const bool sideways = turns % 2 == 1;
    const Pixels drawn =
        whole(*picture, sideways ? height : width, sideways ? width : height, turns, mirrored);
    const Pixels expected = turned(upright, turns, mirrored);
    // Chroma between two samples may be rounded the other way.
    int worst = 0;
    for (std::size_t i = 0; i < drawn.bytes.size(); ++i) {
      worst = std::max(worst, std::abs(drawn.bytes[i] - expected.bytes[i]));
    }
    ASSERT_LE(worst, 1) << width << "x" << height << ", " << turns << ", " << mirrored;
  }
}

TEST_P(PictureScalerTest, APartIsThatOfTheWhole) {
  for (int round = 0; round < 40; ++round) {
    const auto picture = noise(GetParam(), upTo(60), upTo(60), random_);
    const int width = upTo(90), height = upTo(90), turns = round % 4;
    const bool mirrored = round % 8 >= 4;
    PixelRect part{upTo(width) - 1, upTo(height) - 1, 0, 0};
    part.width = upTo(width - part.x);
    part.height = upTo(height - part.y);
    Pixels all = whole(*picture, width, height, turns, mirrored);
    const Pixels drawn = scaled(*picture, {width, height, turns, mirrored, part});
    ASSERT_EQ(drawn.bytes, all.part(part).bytes) << width << "x" << height << ", " << turns;
  }
}

TEST_P(PictureScalerTest, AtItsOwnSizeItConvertsAsTheStandardsSay) {
  const auto picture = noise(GetParam(), 45, 31, random_);
  const Pixels drawn = whole(*picture, 45, 31, 0, false);
  Pixels exact(45, 31);
  convertToBGRA(*picture, exact.bytes.data(), std::ptrdiff_t{4} * 45);
  int far = 0;
  for (std::size_t i = 0; i < drawn.bytes.size(); ++i) {
    far += std::abs(drawn.bytes[i] - exact.bytes[i]) > 2 ? 1 : 0;
  }
  // Only at the edges, where one of the two takes chroma from beyond them.
  EXPECT_LE(far, 4 * 2 * (45 + 31));
}

}  // namespace
}  // namespace zaffo
