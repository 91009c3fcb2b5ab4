// SPDX-License-Identifier: Apache-2.0
#include "platform/coremedia/PictureScaler.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>
#include <vector>

#include "platform/coremedia/ColorMatrix.h"
#include "platform/coremedia/ScaleAxis.h"

namespace zaffo {

namespace {

/// How the samples of one channel lie in a plane.
struct Channel {
  int plane = 0;
  int offset = 0;  ///< samples before the first one of this channel
  int step = 1;    ///< samples from one to the next
};

struct Layout {
  bool wide = false;  ///< 16-bit words
  int bitDepth = 8;
  int unusedLowBits = 0;
  int chromaX = 1, chromaY = 1;  ///< subsampling
  int channels = 3;
  std::array<Channel, 3> channel{{{0, 0, 1}, {1, 0, 1}, {2, 0, 1}}};
};

Layout layoutOf(CVPixelFormat format) {
  Layout layout;
  switch (format) {
    case CVPixelFormat::I420P10:
      layout.wide = true;
      [[fallthrough]];
    case CVPixelFormat::I420:
      layout.chromaX = layout.chromaY = 2;
      break;
    case CVPixelFormat::I422P10:
      layout.wide = true;
      [[fallthrough]];
    case CVPixelFormat::I422:
      layout.chromaX = 2;
      break;
    case CVPixelFormat::I444P10:
      layout.wide = true;
      [[fallthrough]];
    case CVPixelFormat::I444:
      break;
    case CVPixelFormat::P010:
      layout.wide = true;
      layout.unusedLowBits = 6;
      [[fallthrough]];
    case CVPixelFormat::NV12:
      layout.chromaX = layout.chromaY = 2;
      layout.channel = {{{0, 0, 1}, {1, 0, 2}, {1, 1, 2}}};
      break;
    case CVPixelFormat::Gray8:
      layout.channels = 1;
      break;
    case CVPixelFormat::BGRA:
      break;  // scaled by makePackedRow
  }
  if (layout.wide) layout.bitDepth = 10;
  return layout;
}

/// Mixes two rows of samples of `depth` bits into 16 bits.
template <class Sample>
void blendRows(const Sample* first, const Sample* second, int secondWeight256, int depth,
               int unusedLowBits, uint16_t* mixed, int count) {
  const int total = 1 << (16 - depth);
  const auto secondWeight = static_cast<uint16_t>(secondWeight256 * total / 256);
  const auto firstWeight = static_cast<uint16_t>(total - secondWeight);
  for (int i = 0; i < count; ++i) {
    const auto a = static_cast<uint16_t>(first[i] >> unusedLowBits);
    const auto b = static_cast<uint16_t>(second[i] >> unusedLowBits);
    mixed[i] = static_cast<uint16_t>(a * firstWeight + b * secondWeight);
  }
}

/// Stretches a mixed row of one channel. `zero` is what stands for 0, in 128ths of an 8-bit step.
void stretchRow(const uint16_t* mixed, const ScaleAxis& axis, int step, int zero, int16_t* out) {
  const int count = axis.count();
  if (axis.isIdentity() && step == 1) {
    for (int i = 0; i < count; ++i) out[i] = static_cast<int16_t>((mixed[i] >> 1) - zero);
    return;
  }
  const int begin = axis.begin();
  for (int i = 0; i < count; ++i) {
    const ScaleAxis::Tap& tap = axis[i];
    const uint16_t* sample = mixed + (tap.first - begin) * step;
    const int first = sample[0], second = sample[tap.secondStep * step];
    out[i] = static_cast<int16_t>(
        ((first * (256 - tap.secondWeight) + second * tap.secondWeight) >> 9) - zero);
  }
}

template <class Sample>
void makeChannelRow(const CVPixelBuffer::Plane& plane, const Layout& layout, const Channel& channel,
                    const ScaleAxis& axis, const ScaleAxis::Tap& rows, int zero,
                    std::vector<uint16_t>& mixed, int16_t* out) {
  const std::ptrdiff_t start = std::ptrdiff_t{axis.begin()} * channel.step + channel.offset;
  const auto* first =
      reinterpret_cast<const Sample*>(plane.data + plane.stride * rows.first) + start;
  const auto* second =
      reinterpret_cast<const Sample*>(plane.data + plane.stride * (rows.first + rows.secondStep)) +
      start;
  // The last sample ends the row: one more step beyond it may lie outside the plane.
  const int count = (axis.end() - axis.begin() - 1) * channel.step + 1;
  mixed.resize(static_cast<std::size_t>(count));
  blendRows(first, second, rows.secondWeight, layout.bitDepth, layout.unusedLowBits, mixed.data(),
            count);
  stretchRow(mixed.data(), axis, channel.step, zero, out);
}

/// Exchanges rows and columns: `target` is as wide as `source` is high.
void transpose(const Bitmap& source, const Bitmap& target) {
  constexpr int block = 16;  // two blocks fit the first-level cache whatever the strides
  for (int left = 0; left < source.width; left += block) {
    const int right = std::min(left + block, source.width);
    for (int y = 0; y < source.height; ++y) {
      for (int x = left; x < right; ++x) {
        std::memcpy(target.row(x) + std::ptrdiff_t{4} * y, source.row(y) + std::ptrdiff_t{4} * x,
                    4);
      }
    }
  }
}

/// How the rows of a picture are stretched, and which part of the outcome is wanted.
struct Stretch {
  int width = 0, height = 0;
  bool flippedX = false, flippedY = false;
  PixelRect part;
};

/// A quarter turn is an exchange of rows and columns, which is left to be done, plus a flip of one
/// direction.
Stretch stretchOf(const PictureLayout& l) {
  Stretch stretch{l.width, l.height, l.mirrored != (l.quarterTurns >= 2),
                  l.quarterTurns == 1 || l.quarterTurns == 2, l.part};
  if (l.quarterTurns % 2 == 1) {
    std::swap(stretch.width, stretch.height);
    std::swap(stretch.part.x, stretch.part.y);
    std::swap(stretch.part.width, stretch.part.height);
  }
  return stretch;
}

}  // namespace

/// What is known of one picture while its rows are made, and the memory that is kept for the next.
struct PictureScaler::Pass {
  void prepare(const CVPixelBuffer& picture, const Stretch& stretch);
  void makeRow(int y, uint8_t* out);
  void makePackedRow(int y, uint8_t* out);

  const CVPixelBuffer* picture = nullptr;
  Layout layout;
  ColorMatrix matrix;
  ScaleAxis lumaX, lumaY, chromaX, chromaY;
  std::vector<uint16_t> blended;                 // a row between two source rows
  std::array<std::vector<int16_t>, 3> channels;  // that row at the output's width
  std::vector<uint8_t> strip;                    // rows that are about to become columns
};

PictureScaler::PictureScaler() : pass_(std::make_unique<Pass>()) {}

PictureScaler::~PictureScaler() = default;

void PictureScaler::Pass::prepare(const CVPixelBuffer& p, const Stretch& stretch) {
  picture = &p;
  layout = layoutOf(p.format);
  matrix = ColorMatrix::make(p.matrix, p.range, layout.bitDepth);
  const PixelRect& part = stretch.part;
  const auto across = [&](int subsampling) {
    return ScaleAxis::Mapping{p.cropLeft,    p.cropWidth,      subsampling, p.chromaSiteX,
                              stretch.width, stretch.flippedX, part.x,      part.width};
  };
  const auto down = [&](int subsampling) {
    return ScaleAxis::Mapping{p.cropTop,      p.cropHeight,     subsampling, p.chromaSiteY,
                              stretch.height, stretch.flippedY, part.y,      part.height};
  };
  lumaX.prepare(across(1));
  lumaY.prepare(down(1));
  chromaX.prepare(across(layout.chromaX));
  chromaY.prepare(down(layout.chromaY));
  for (auto& channel : channels) channel.assign(static_cast<std::size_t>(part.width), 0);
}

void PictureScaler::Pass::makeRow(int y, uint8_t* out) {
  if (picture->format == CVPixelFormat::BGRA) return makePackedRow(y, out);
  for (int c = 0; c < layout.channels; ++c) {
    const auto index = static_cast<std::size_t>(c);
    const Channel& channel = layout.channel[index];
    const auto& plane = picture->planes[static_cast<std::size_t>(channel.plane)];
    const ScaleAxis& axis = c == 0 ? lumaX : chromaX;
    const ScaleAxis::Tap& rows = c == 0 ? lumaY[y] : chromaY[y];
    const int zero = c == 0 ? 0 : 128 * 128;
    const auto make = layout.wide ? makeChannelRow<uint16_t> : makeChannelRow<uint8_t>;
    make(plane, layout, channel, axis, rows, zero, blended, channels[index].data());
  }
  convertRow(matrix, channels[0].data(), channels[1].data(), channels[2].data(), out,
             lumaX.count());
}

void PictureScaler::Pass::makePackedRow(int y, uint8_t* out) {
  const auto& plane = picture->planes[0];
  const int begin = lumaX.begin(), count = 4 * (lumaX.end() - begin);
  const ScaleAxis::Tap& rows = lumaY[y];
  const uint8_t* first = plane.data + plane.stride * rows.first + std::ptrdiff_t{4} * begin;
  const uint8_t* second = first + plane.stride * rows.secondStep;
  if (lumaX.isIdentity() && rows.secondWeight == 0) {
    std::memcpy(out, first, std::size_t{4} * static_cast<std::size_t>(lumaX.count()));
    return;
  }
  blended.resize(static_cast<std::size_t>(count));
  blendRows(first, second, rows.secondWeight, 8, 0, blended.data(), count);
  for (int x = 0; x < lumaX.count(); ++x) {
    const ScaleAxis::Tap& tap = lumaX[x];
    const uint16_t* left = blended.data() + std::ptrdiff_t{4} * (tap.first - begin);
    const uint16_t* right = left + std::ptrdiff_t{4} * tap.secondStep;
    for (int c = 0; c < 4; ++c) {
      const int mixed = left[c] * (256 - tap.secondWeight) + right[c] * tap.secondWeight;
      out[4 * x + c] = static_cast<uint8_t>((mixed + 0x7fff) >> 16);
    }
  }
}

void PictureScaler::scale(const CVPixelBuffer& picture, const PictureLayout& layout,
                          const Bitmap& target) {
  pass_->prepare(picture, stretchOf(layout));
  if (layout.quarterTurns % 2 == 0) {
    for (int y = 0; y < target.height; ++y) pass_->makeRow(y, target.row(y));
    return;
  }
  constexpr int kStrip = 16;  // rows: a line of the cache in each row of the target
  const std::ptrdiff_t stride = std::ptrdiff_t{4} * target.height;
  pass_->strip.resize(static_cast<std::size_t>(stride * kStrip));
  for (int x = 0; x < target.width; x += kStrip) {
    const Bitmap strip{pass_->strip.data(), stride, target.height,
                       std::min(kStrip, target.width - x)};
    for (int y = 0; y < strip.height; ++y) pass_->makeRow(x + y, strip.row(y));
    transpose(strip, target.part({x, 0, strip.height, target.height}));
  }
}

}  // namespace zaffo
