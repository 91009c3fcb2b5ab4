// SPDX-License-Identifier: Apache-2.0
#include "overlay/Shapes.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

namespace zaffo::feed {

namespace {

using Inside = std::function<bool(double x, double y)>;

constexpr int kSamples = 4;  // a side of a pixel

/// What part of a pixel lies within the shape.
double coverage(const Inside& inside, int x, int y) {
  int count = 0;
  for (int row = 0; row < kSamples; ++row) {
    for (int column = 0; column < kSamples; ++column)
      count += inside(x + (column + 0.5) / kSamples, y + (row + 0.5) / kSamples) ? 1 : 0;
  }
  return static_cast<double>(count) / (kSamples * kSamples);
}

class Drawing {
 public:
  Drawing(int width, int height)
      : width_(std::max(width, 1)),
        height_(std::max(height, 1)),
        pixels_(rowBytes() * static_cast<std::size_t>(height_)) {}

  void fill(const CGColor& color, const Inside& inside) {
    for (int y = 0; y < height_; ++y)
      for (int x = 0; x < width_; ++x) blend(x, y, color, coverage(inside, x, y));
  }

  void blend(int x, int y, const CGColor& color, double part) {
    const double alpha = color.alpha * part;
    const double source[4]{color.blue, color.green, color.red, 1};
    uint8_t* pixel = &pixels_[rowBytes() * static_cast<std::size_t>(y) +
                              std::size_t{4} * static_cast<std::size_t>(x)];
    for (int channel = 0; channel < 4; ++channel) {
      const double mixed = source[channel] * alpha * 255 + pixel[channel] * (1 - alpha);
      pixel[channel] = static_cast<uint8_t>(std::lround(std::clamp(mixed, 0.0, 255.0)));
    }
  }

  CGImagePtr image() && {
    return std::make_shared<const CGImage>(width_, height_, rowBytes(), std::move(pixels_));
  }

 private:
  [[nodiscard]] std::size_t rowBytes() const {
    return std::size_t{4} * static_cast<std::size_t>(width_);
  }

  int width_, height_;
  std::vector<uint8_t> pixels_;
};

Inside rectangle(double left, double top, double right, double bottom, double radius) {
  return [=](double x, double y) {
    if (x < left || x > right || y < top || y > bottom) return false;
    const double dx = std::max({left + radius - x, x - (right - radius), 0.0});
    const double dy = std::max({top + radius - y, y - (bottom - radius), 0.0});
    return dx * dx + dy * dy <= radius * radius;
  };
}

}  // namespace

CGImagePtr roundedImage(int width, int height, double radius, CGColor color) {
  Drawing drawing(width, height);
  drawing.fill(color, rectangle(0, 0, width, height, radius));
  return std::move(drawing).image();
}

CGImagePtr discImage(int diameter, CGColor color) {
  return roundedImage(diameter, diameter, diameter / 2.0, color);
}

CGImagePtr pauseImage(int diameter) {
  const double d = diameter;
  Drawing drawing(diameter, diameter);
  drawing.fill({0, 0, 0, 0.5}, rectangle(0, 0, d, d, d / 2));
  for (const double left : {0.34, 0.55})
    drawing.fill({1, 1, 1, 0.95},
                 rectangle(d * left, d * 0.29, d * (left + 0.11), d * 0.71, d * 0.025));
  return std::move(drawing).image();
}

CGImagePtr shadeImage(int height, double opacity) {
  Drawing drawing(1, height);
  for (int y = 0; y < height; ++y) {
    const double way = (y + 0.5) / height;
    drawing.blend(0, y, {0, 0, 0, opacity}, way * way * (3 - 2 * way));
  }
  return std::move(drawing).image();
}

}  // namespace zaffo::feed
