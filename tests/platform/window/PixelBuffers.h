// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "WindowTestSupport.h"
#include "platform/coremedia/CVPixelBuffer.h"

namespace zaffo {

/// How a test wants a moving picture to be stored.
struct BufferKind {
  CVPixelFormat format = CVPixelFormat::I420;
  CVColorMatrix matrix = CVColorMatrix::BT709;
  CVColorRange range = CVColorRange::Limited;
};

/// Y, Cb, Cr from 0 to 1 and -0.5 to 0.5, by the textbook, in floating point.
[[nodiscard]] inline std::array<double, 3> toYCbCr(const Pixel& p, CVColorMatrix matrix) {
  const double kr = matrix == CVColorMatrix::BT601   ? 0.299
                    : matrix == CVColorMatrix::BT709 ? 0.2126
                                                     : 0.2627;
  const double kb = matrix == CVColorMatrix::BT601   ? 0.114
                    : matrix == CVColorMatrix::BT709 ? 0.0722
                                                     : 0.0593;
  const double r = p.red / 255.0, g = p.green / 255.0, b = p.blue / 255.0;
  const double y = kr * r + (1 - kr - kb) * g + kb * b;
  return {y, (b - y) / (2 * (1 - kb)), (r - y) / (2 * (1 - kr))};
}

/// A moving picture painted in RGB. Chroma that several pixels share is taken from the first.
class PixelBufferPainter {
 public:
  PixelBufferPainter(BufferKind kind, int width, int height) {
    buffer_ = std::make_shared<CVPixelBuffer>();
    buffer_->format = kind.format;
    buffer_->matrix = kind.matrix;
    buffer_->range = kind.range;
    buffer_->width = buffer_->cropWidth = width;
    buffer_->height = buffer_->cropHeight = height;
  }
  void crop(int left, int top, int width, int height) {
    buffer_->cropLeft = left;
    buffer_->cropTop = top;
    buffer_->cropWidth = width;
    buffer_->cropHeight = height;
  }
  [[nodiscard]] CVPixelBufferPtr paint(const std::function<Pixel(int x, int y)>& color) {
    switch (buffer_->format) {
      case CVPixelFormat::I420:
        planar(color, 8, 2, 2);
        break;
      case CVPixelFormat::I422:
        planar(color, 8, 2, 1);
        break;
      case CVPixelFormat::I444:
        planar(color, 8, 1, 1);
        break;
      case CVPixelFormat::I420P10:
        planar(color, 10, 2, 2);
        break;
      case CVPixelFormat::I422P10:
        planar(color, 10, 2, 1);
        break;
      case CVPixelFormat::I444P10:
        planar(color, 10, 1, 1);
        break;
      case CVPixelFormat::NV12:
        interleaved(color, 8, 0);
        break;
      case CVPixelFormat::P010:
        interleaved(color, 10, 6);
        break;
      case CVPixelFormat::Gray8:
        plane(color, 0, 8, 0, {0}, 1, 1);
        break;
      case CVPixelFormat::BGRA:
        packed(color);
        break;
    }
    auto memory = std::make_shared<std::array<std::vector<uint8_t>, 3>>(std::move(memory_));
    for (std::size_t i = 0; i < 3; ++i) buffer_->planes[i].data = (*memory)[i].data();
    buffer_->owner = memory;
    return buffer_;
  }

 private:
  using Paint = std::function<Pixel(int, int)>;

  [[nodiscard]] int code(double value, bool isChroma, int depth) const {
    const double steps = depth == 10 ? 4 : 1;
    double coded = 0;
    if (buffer_->range == CVColorRange::Full) {
      coded = value * ((1 << depth) - 1) + (isChroma ? 128 * steps : 0);
    } else {
      coded = isChroma ? (128 + 224 * value) * steps : (16 + 219 * value) * steps;
    }
    return static_cast<int>(std::lround(std::clamp(coded, 0.0, (1 << depth) - 1.0)));
  }

  void plane(const Paint& color, std::size_t index, int depth, int shift,
             const std::vector<std::size_t>& channels, int subX, int subY) {
    const int columns = (buffer_->width + subX - 1) / subX;
    const int rows = (buffer_->height + subY - 1) / subY;
    const int bytes = depth > 8 ? 2 : 1;
    const int padding = 6;  // rows that follow one another directly would hide a wrong stride
    const auto stride = columns * bytes * static_cast<int>(channels.size()) + padding;
    buffer_->planes[index].stride = stride;
    memory_[index].assign(static_cast<std::size_t>(stride) * rows - padding, 0);
    for (int y = 0; y < rows; ++y) {
      uint8_t* out = memory_[index].data() + static_cast<std::ptrdiff_t>(stride) * y;
      for (int x = 0; x < columns; ++x) {
        const auto ycc = toYCbCr(color(x * subX, y * subY), buffer_->matrix);
        for (const std::size_t channel : channels) {
          const auto word = static_cast<uint16_t>(code(ycc[channel], channel != 0, depth) << shift);
          std::memcpy(out, &word, static_cast<std::size_t>(bytes));
          out += bytes;
        }
      }
    }
  }
  void planar(const Paint& color, int depth, int subX, int subY) {
    plane(color, 0, depth, 0, {0}, 1, 1);
    plane(color, 1, depth, 0, {1}, subX, subY);
    plane(color, 2, depth, 0, {2}, subX, subY);
  }
  void interleaved(const Paint& color, int depth, int shift) {
    plane(color, 0, depth, shift, {0}, 1, 1);
    plane(color, 1, depth, shift, {1, 2}, 2, 2);
  }
  void packed(const Paint& color) {
    buffer_->planes[0].stride = 4 * buffer_->width;
    for (int y = 0; y < buffer_->height; ++y) {
      for (int x = 0; x < buffer_->width; ++x) {
        const Pixel p = color(x, y);
        for (const int byte : {p.blue, p.green, p.red, p.alpha}) {
          memory_[0].push_back(static_cast<uint8_t>(byte));
        }
      }
    }
  }

  std::shared_ptr<CVPixelBuffer> buffer_;
  std::array<std::vector<uint8_t>, 3> memory_;
};

[[nodiscard]] inline CVPixelBufferPtr makeBuffer(BufferKind kind, int width, int height,
                                                 const std::function<Pixel(int, int)>& paint) {
  return PixelBufferPainter(kind, width, height).paint(paint);
}

[[nodiscard]] inline CVPixelBufferPtr makeQuarters(int width, int height, BufferKind kind = {}) {
  return makeBuffer(kind, width, height,
                    [=](int x, int y) { return quarter(x, y, width, height); });
}

}  // namespace zaffo
