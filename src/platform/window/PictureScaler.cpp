#include "platform/window/PictureScaler.h"

#include <cstring>

namespace zaffo::window {

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
      break;  // scaled by scalePacked
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

}  // namespace

struct PictureScaler::Packed {
  const uint8_t* pixels;
  std::ptrdiff_t stride;
  PixelRect crop;
};

void PictureScaler::prepareAxes(const CVPixelBuffer& p, const Stretch& s) {
  const Layout layout = layoutOf(p.format);
  const PixelRect& part = s.part;
  const auto across = [&](int subsampling) {
    return ScaleAxis::Mapping{p.cropLeft, p.cropWidth, subsampling, p.chromaSiteX,
                              s.width,    s.flippedX,  part.x,      part.width};
  };
  const auto down = [&](int subsampling) {
    return ScaleAxis::Mapping{p.cropTop, p.cropHeight, subsampling, p.chromaSiteY,
                              s.height,  s.flippedY,   part.y,      part.height};
  };
  lumaX_.prepare(across(1));
  lumaY_.prepare(down(1));
  chromaX_.prepare(across(layout.chromaX));
  chromaY_.prepare(down(layout.chromaY));
}

void PictureScaler::scale(const CVPixelBuffer& p, const Stretch& stretch, const Bitmap& target) {
  if (p.format == CVPixelFormat::BGRA) {
    scalePacked(
        {p.planes[0].data, p.planes[0].stride, {p.cropLeft, p.cropTop, p.cropWidth, p.cropHeight}},
        stretch, target);
    return;
  }
  const Layout layout = layoutOf(p.format);
  const ColorMatrix matrix = ColorMatrix::make(p.matrix, p.range, layout.bitDepth);
  prepareAxes(p, stretch);
  for (auto& channel : channels_) channel.assign(static_cast<std::size_t>(target.width), 0);

  for (int y = 0; y < target.height; ++y) {
    for (int c = 0; c < layout.channels; ++c) {
      const auto index = static_cast<std::size_t>(c);
      const Channel& channel = layout.channel[index];
      const auto& plane = p.planes[static_cast<std::size_t>(channel.plane)];
      const ScaleAxis& axis = c == 0 ? lumaX_ : chromaX_;
      const ScaleAxis::Tap& rows = c == 0 ? lumaY_[y] : chromaY_[y];
      const int zero = c == 0 ? 0 : 128 * 128;
      const auto make = layout.wide ? makeChannelRow<uint16_t> : makeChannelRow<uint8_t>;
      make(plane, layout, channel, axis, rows, zero, blended_, channels_[index].data());
    }
    convertRow(matrix, channels_[0].data(), channels_[1].data(), channels_[2].data(), target.row(y),
               target.width);
  }
}

void PictureScaler::scale(const CGImage& image, const Stretch& stretch, const Bitmap& target) {
  scalePacked({image.pixels(),
               static_cast<std::ptrdiff_t>(image.stride()),
               {0, 0, image.width(), image.height()}},
              stretch, target);
}

void PictureScaler::scalePacked(const Packed& packed, const Stretch& s, const Bitmap& target) {
  const PixelRect& crop = packed.crop;
  const auto onePerPixel = CVChromaSite::First;
  lumaX_.prepare({crop.x, crop.width, 1, onePerPixel, s.width, s.flippedX, s.part.x, s.part.width});
  lumaY_.prepare(
      {crop.y, crop.height, 1, onePerPixel, s.height, s.flippedY, s.part.y, s.part.height});
  const int begin = lumaX_.begin(), count = 4 * (lumaX_.end() - begin);
  blended_.resize(static_cast<std::size_t>(count));

  for (int y = 0; y < target.height; ++y) {
    const ScaleAxis::Tap& rows = lumaY_[y];
    const uint8_t* first = packed.pixels + packed.stride * rows.first + std::ptrdiff_t{4} * begin;
    const uint8_t* second = first + packed.stride * rows.secondStep;
    uint8_t* out = target.row(y);
    if (lumaX_.isIdentity() && rows.secondWeight == 0) {
      std::memcpy(out, first, std::size_t{4} * static_cast<std::size_t>(target.width));
      continue;
    }
    blendRows(first, second, rows.secondWeight, 8, 0, blended_.data(), count);
    for (int x = 0; x < target.width; ++x) {
      const ScaleAxis::Tap& tap = lumaX_[x];
      const uint16_t* left = blended_.data() + std::ptrdiff_t{4} * (tap.first - begin);
      const uint16_t* right = left + std::ptrdiff_t{4} * tap.secondStep;
      for (int c = 0; c < 4; ++c) {
        const int mixed = left[c] * (256 - tap.secondWeight) + right[c] * tap.secondWeight;
        out[4 * x + c] = static_cast<uint8_t>((mixed + 0x7fff) >> 16);
      }
    }
  }
}

}  // namespace zaffo::window
