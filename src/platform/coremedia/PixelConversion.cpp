// SPDX-License-Identifier: Apache-2.0
#include "platform/coremedia/PixelConversion.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>

#include "platform/coremedia/ColorMatrix.h"

// Pixels are worked on in tiles of a row: constant trip counts over arrays that cannot alias are
// what compilers turn into vector code without being asked twice.
//
// Samples are what a ColorMatrix takes, whatever their depth: 128 << 7 is in the middle of chroma.

namespace zaffo {

namespace {

static_assert(std::endian::native == std::endian::little, "samples of 16 bits are read as stored");

constexpr std::size_t kTile = 64;  // pixels
constexpr std::size_t kChromaTile =
    kTile / 2 + 16;  // samples: one before, half a tile, the one after, and padding
constexpr int kSampleBits = 7;
constexpr int kMiddle = 128 << kSampleBits;

enum class Depth { Eight, TenLow, TenHigh };

struct Layout {
  Depth depth = Depth::Eight;
  bool halvedAcross = false;
  bool halvedDown = false;
  bool interleaved = false;
  bool hasChroma = true;
};

Layout layoutOf(CVPixelFormat format) {
  switch (format) {
    case CVPixelFormat::I420:
      return {Depth::Eight, true, true, false, true};
    case CVPixelFormat::I422:
      return {Depth::Eight, true, false, false, true};
    case CVPixelFormat::I444:
      return {Depth::Eight, false, false, false, true};
    case CVPixelFormat::I420P10:
      return {Depth::TenLow, true, true, false, true};
    case CVPixelFormat::I422P10:
      return {Depth::TenLow, true, false, false, true};
    case CVPixelFormat::I444P10:
      return {Depth::TenLow, false, false, false, true};
    case CVPixelFormat::NV12:
      return {Depth::Eight, true, true, true, true};
    case CVPixelFormat::P010:
      return {Depth::TenHigh, true, true, true, true};
    case CVPixelFormat::Gray8:
    case CVPixelFormat::BGRA:
      break;
  }
  return {Depth::Eight, false, false, false, false};
}

template <std::size_t count>
using Samples = std::array<int16_t, count>;

template <std::size_t count>
struct alignas(16) RawSamples {
  std::array<uint8_t, count> eight;
  std::array<uint16_t, count> ten;
};

/// Copies samples of a row from sample `first` on, which may be -1; each is `values` numbers that
/// lie together. Beyond the row its first or last one is repeated.
template <typename T, std::size_t count>
void copyRepeating(std::array<T, count>& to, const uint8_t* row, int first, int rowLength,
                   int values) {
  const int before = std::max(0, -first) * values;
  const int inside =
      std::min(static_cast<int>(count) - before, (rowLength - std::max(0, first)) * values);
  const std::ptrdiff_t start = std::ptrdiff_t{std::max(0, first)} * values;
  std::memcpy(to.data() + before, row + start * static_cast<std::ptrdiff_t>(sizeof(T)),
              static_cast<std::size_t>(inside) * sizeof(T));
  std::copy_n(to.begin() + before, before, to.begin());
  for (int i = before + inside; i < static_cast<int>(count); ++i) {
    to[static_cast<std::size_t>(i)] = to[static_cast<std::size_t>(i - values)];
  }
}

template <std::size_t count>
void widen(Samples<count>& to, const RawSamples<count>& raw, Depth depth, int offset) {
  if (depth == Depth::Eight) {
    for (std::size_t i = 0; i < count; ++i) {
      to[i] = static_cast<int16_t>((raw.eight[i] << 7) - offset);
    }
  } else if (depth == Depth::TenLow) {
    for (std::size_t i = 0; i < count; ++i) {
      to[i] = static_cast<int16_t>(((raw.ten[i] & 1023) << 5) - offset);
    }
  } else {
    for (std::size_t i = 0; i < count; ++i) {
      to[i] = static_cast<int16_t>(((raw.ten[i] >> 6) << 5) - offset);
    }
  }
}

template <std::size_t count>
void load(Samples<count>& to, const uint8_t* row, int first, int rowLength, Depth depth,
          int offset) {
  RawSamples<count> raw;
  if (depth == Depth::Eight) {
    copyRepeating(raw.eight, row, first, rowLength, 1);
  } else {
    copyRepeating(raw.ten, row, first, rowLength, 1);
  }
  widen(to, raw, depth, offset);
}

template <std::size_t count>
struct Chroma {
  Samples<count> u{}, v{};
};

/// As load, of pairs of U and V.
template <std::size_t count>
void loadPairs(Chroma<count>& to, const uint8_t* row, int first, int rowLength, Depth depth) {
  RawSamples<2 * count> raw;
  if (depth == Depth::Eight) {
    copyRepeating(raw.eight, row, first, rowLength, 2);
  } else {
    copyRepeating(raw.ten, row, first, rowLength, 2);
  }
  Samples<2 * count> pairs;
  widen(pairs, raw, depth, kMiddle);
  for (std::size_t i = 0; i < count; ++i) {
    to.u[i] = pairs[2 * i];
    to.v[i] = pairs[2 * i + 1];
  }
}

/// For sums that are known to fit 16 bits. The cast lets the compiler stay there too.
int16_t add(int16_t a, int16_t b) {
  return static_cast<int16_t>(a + b);
}

/// How far a pixel is from the chroma sample that it shares, in quarters of the distance to the
/// next sample: negative where it lies before its own.
int quartersFromOwnSample(int pixel, CVChromaSite site) {
  return 2 * (pixel % 2) - halfPixelsFromFirst(site);
}

/// What lies `quarters` (up to two) of the way from `near` to `far`.
int16_t between(int16_t near, int16_t far, int quarters) {
  if (quarters == 0) return near;
  const auto difference = static_cast<int16_t>(far - near);
  return add(near, static_cast<int16_t>(difference >> (3 - quarters)));
}

constexpr std::size_t kWideTile = 2 * (kChromaTile - 8);

/// Twice the samples from the second one on, for pixels that lie as far from theirs as `site` says.
void doubleAcross(Samples<kWideTile>& to, const Samples<kChromaTile>& from, CVChromaSite site) {
  for (const int pixel : {0, 1}) {
    const int quarters = quartersFromOwnSample(pixel, site);
    const std::size_t far = quarters < 0 ? 0 : 2;
    const int weight = std::abs(quarters);
    auto* out = to.data() + pixel;
    for (std::size_t i = 0; i < kWideTile / 2; ++i) {
      out[2 * i] = between(from[i + 1], from[i + far], weight);
    }
  }
}

using TilePixels = std::array<uint8_t, 4 * kTile>;

/// Converts one buffer tile by tile.
class Converter {
 public:
  explicit Converter(const CVPixelBuffer& buffer)
      : buffer_(buffer),
        layout_(layoutOf(buffer.format)),
        matrix_(
            ColorMatrix::make(buffer.matrix, buffer.range, layout_.depth == Depth::Eight ? 8 : 10)),
        chromaWidth_(layout_.halvedAcross ? (buffer.width + 1) / 2 : buffer.width),
        chromaHeight_(layout_.halvedDown ? (buffer.height + 1) / 2 : buffer.height) {}

  [[nodiscard]] bool hasPlanes() const {
    const int needed = !layout_.hasChroma ? 1 : layout_.interleaved ? 2 : 3;
    return std::all_of(buffer_.planes.begin(), buffer_.planes.begin() + needed,
                       [](const auto& plane) { return plane.data != nullptr; });
  }

  /// The pixels of row `y` from column `x` on, in coded pixels.
  void convert(TilePixels& to, int x, int y) {
    load(luma_, row(0, y), x, buffer_.width, layout_.depth, 0);
    if (layout_.halvedAcross) {
      loadChroma(narrow_, x / 2 - 1, y);
      doubleAcross(wideU_, narrow_.u, buffer_.chromaSiteX);
      doubleAcross(wideV_, narrow_.v, buffer_.chromaSiteX);
      convertRow(matrix_, luma_.data(), wideU_.data() + x % 2, wideV_.data() + x % 2, to.data(),
                 int{kTile});
    } else {
      if (layout_.hasChroma) loadChroma(whole_, x, y);
      convertRow(matrix_, luma_.data(), whole_.u.data(), whole_.v.data(), to.data(), int{kTile});
    }
  }

 private:
  [[nodiscard]] const uint8_t* row(std::size_t plane, int y) const {
    return buffer_.planes[plane].data + y * buffer_.planes[plane].stride;
  }

  template <std::size_t count>
  void loadChromaRow(Chroma<count>& to, int x, int y) const {
    if (layout_.interleaved) {
      loadPairs(to, row(1, y), x, chromaWidth_, layout_.depth);
    } else {
      load(to.u, row(1, y), x, chromaWidth_, layout_.depth, kMiddle);
      load(to.v, row(2, y), x, chromaWidth_, layout_.depth, kMiddle);
    }
  }

  /// `x` in samples of chroma, from -1 on, `y` in rows of pixels.
  template <std::size_t count>
  void loadChroma(Chroma<count>& to, int x, int y) const {
    if (!layout_.halvedDown) return loadChromaRow(to, x, y);
    loadChromaRow(to, x, y / 2);
    const int quarters = quartersFromOwnSample(y, buffer_.chromaSiteY);
    const int far = std::clamp(quarters < 0 ? y / 2 - 1 : y / 2 + 1, 0, chromaHeight_ - 1);
    if (quarters == 0 || far == y / 2) return;
    Chroma<count> other;
    loadChromaRow(other, x, far);
    for (std::size_t i = 0; i < count; ++i) {
      to.u[i] = between(to.u[i], other.u[i], std::abs(quarters));
      to.v[i] = between(to.v[i], other.v[i], std::abs(quarters));
    }
  }

  const CVPixelBuffer& buffer_;
  const Layout layout_;
  const ColorMatrix matrix_;
  const int chromaWidth_, chromaHeight_;

  Samples<kTile> luma_{};
  Chroma<kTile> whole_;  // chroma a pixel; stays 0 for a picture without
  Chroma<kChromaTile> narrow_;
  Samples<kWideTile> wideU_{}, wideV_{};
};

bool hasAperture(const CVPixelBuffer& b) {
  return b.cropLeft >= 0 && b.cropTop >= 0 && b.cropWidth > 0 && b.cropHeight > 0 &&
         b.cropWidth <= b.width - b.cropLeft && b.cropHeight <= b.height - b.cropTop;
}

}  // namespace

void convertToBGRA(const CVPixelBuffer& buffer, uint8_t* destination, std::ptrdiff_t stride) {
  Converter converter(buffer);
  if (!hasAperture(buffer) || !converter.hasPlanes()) return;
  if (buffer.format == CVPixelFormat::BGRA) {
    const auto& plane = buffer.planes[0];
    for (int y = 0; y < buffer.cropHeight; ++y) {
      std::memcpy(
          destination + y * stride,
          plane.data + (buffer.cropTop + y) * plane.stride + std::ptrdiff_t{4} * buffer.cropLeft,
          std::size_t{4} * static_cast<std::size_t>(buffer.cropWidth));
    }
    return;
  }
  TilePixels tile;
  for (int y = 0; y < buffer.cropHeight; ++y) {
    for (int x = 0; x < buffer.cropWidth; x += int{kTile}) {
      converter.convert(tile, buffer.cropLeft + x, buffer.cropTop + y);
      const int pixels = std::min(int{kTile}, buffer.cropWidth - x);
      std::memcpy(destination + y * stride + std::ptrdiff_t{4} * x, tile.data(),
                  std::size_t{4} * static_cast<std::size_t>(pixels));
    }
  }
}

}  // namespace zaffo
