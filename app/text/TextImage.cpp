// SPDX-License-Identifier: Apache-2.0
#include "text/TextImage.h"

#include <SDL.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "text/TextLayout.h"

namespace zaffo::feed {

namespace {

constexpr double kLeading = 1.05;  // from line to line, by what the letters reach up and down

struct SurfaceFreer {
  void operator()(SDL_Surface* surface) const { SDL_FreeSurface(surface); }
};
using SurfacePtr = std::unique_ptr<SDL_Surface, SurfaceFreer>;

uint8_t toByte(double unit) {
  return static_cast<uint8_t>(std::lround(std::clamp(unit, 0.0, 1.0) * 255));
}

/// The drawing of a run, in rows of straight blue, green, red and alpha.
SurfacePtr drawRun(const TextRun& run, const CGColor& color) {
  prepareFont(run);
  const SDL_Color ink{toByte(color.red), toByte(color.green), toByte(color.blue), 255};
  const SurfacePtr drawn(
      TTF_RenderUTF8_Blended(run.font->font.get(), utf8Of(run.letters).c_str(), ink));
  if (!drawn) return nullptr;
  return SurfacePtr(SDL_ConvertSurfaceFormat(drawn.get(), SDL_PIXELFORMAT_BGRA32, 0));
}

/// Premultiplied pixels that drawings are put together in.
class Sheet {
 public:
  Sheet(int width, int height)
      : width_(width), height_(height), pixels_(rowBytes() * static_cast<std::size_t>(height)) {}

  /// Draws `surface` with its upper left corner at a place, made smaller by `factor`.
  void draw(const SDL_Surface& surface, int left, int top, double factor, double opacity) {
    const int width = static_cast<int>(std::lround(surface.w * factor));
    const int height = static_cast<int>(std::lround(surface.h * factor));
    for (int y = std::max(0, -top); y < height && top + y < height_; ++y) {
      for (int x = std::max(0, -left); x < width && left + x < width_; ++x) {
        double mean[4]{};
        average(surface, x / factor, y / factor, 1 / factor, mean);
        blend(left + x, top + y, mean, opacity);
      }
    }
  }

  CGImagePtr image() && {
    return std::make_shared<const CGImage>(width_, height_, rowBytes(), std::move(pixels_));
  }

 private:
  [[nodiscard]] std::size_t rowBytes() const {
    return std::size_t{4} * static_cast<std::size_t>(width_);
  }

  /// The premultiplied mean over a square of the surface, each from 0 to 255.
  static void average(const SDL_Surface& surface, double left, double top, double side,
                      double (&mean)[4]) {
    const int firstX = static_cast<int>(left), firstY = static_cast<int>(top);
    const int lastX = std::min(std::max(firstX + 1, static_cast<int>(left + side)), surface.w);
    const int lastY = std::min(std::max(firstY + 1, static_cast<int>(top + side)), surface.h);
    int count = 0;
    for (int y = firstY; y < lastY; ++y) {
      const auto* pixel = static_cast<const uint8_t*>(surface.pixels) +
                          static_cast<std::ptrdiff_t>(surface.pitch) * y + 4 * firstX;
      for (int x = firstX; x < lastX; ++x, pixel += 4, ++count) {
        for (int channel = 0; channel < 3; ++channel)
          mean[channel] += pixel[channel] * pixel[3] / 255.0;
        mean[3] += pixel[3];
      }
    }
    for (double& channel : mean) channel /= std::max(count, 1);
  }

  void blend(int x, int y, const double (&source)[4], double opacity) {
    uint8_t* target = &pixels_[rowBytes() * static_cast<std::size_t>(y) +
                               std::size_t{4} * static_cast<std::size_t>(x)];
    const double behind = 1 - source[3] * opacity / 255;
    for (int channel = 0; channel < 4; ++channel) {
      const double mixed = source[channel] * opacity + target[channel] * behind;
      target[channel] = static_cast<uint8_t>(std::min(std::lround(mixed), 255L));
    }
    for (int channel = 0; channel < 3; ++channel)
      target[channel] = std::min(target[channel], target[3]);
  }

  int width_, height_;
  std::vector<uint8_t> pixels_;
};

/// How far the letters of all lines reach above and below the line they stand on.
struct Reach {
  int up = 0, down = 0;
  [[nodiscard]] int pitch() const { return static_cast<int>(std::lround((up + down) * kLeading)); }
};

Reach reachOf(const std::vector<TextLine>& lines, const Font& builtIn) {
  Reach reach{builtIn.ascent(), builtIn.descent()};
  for (const TextLine& line : lines) {
    for (const TextRun& run : line.runs) {
      reach.up = std::max(reach.up, run.font->ascent());
      reach.down = std::max(reach.down, run.font->descent());
    }
  }
  return reach;
}

int leftOf(const TextLine& line, int width, bool isCentred) {
  const int free = width - line.width;
  if (isCentred) return free / 2;
  return line.isRightToLeft ? free : 0;
}

void drawLine(Sheet& sheet, const TextLine& line, int left, int baseline, const CGColor& color) {
  for (const TextRun& run : line.runs) {
    if (const SurfacePtr drawn = drawRun(run, color))
      sheet.draw(*drawn, left, baseline - run.font->ascent(), run.font->factor, color.alpha);
    left += run.width;
  }
}

}  // namespace

CGImagePtr renderText(const std::string& text, const TextStyle& style, double scale,
                      std::set<SystemFonts::Question>* unanswered) {
  if (text.empty()) return nullptr;
  Fonts fonts(std::max(static_cast<int>(std::lround(style.size * scale)), 1), !unanswered);
  if (!fonts.isReady()) return nullptr;
  const int most = std::max(static_cast<int>(style.width * scale), 1);
  const auto lines = layOutText(lettersOf(text), fonts, most, style.lines);
  if (unanswered) *unanswered = fonts.unanswered();
  const Reach reach = reachOf(lines, fonts.builtIn());
  int width = 1;
  for (const TextLine& line : lines) width = std::max(width, line.width);
  const auto count = static_cast<int>(lines.size());
  Sheet sheet(width, reach.pitch() * (count - 1) + reach.up + reach.down);
  for (int i = 0; i < count; ++i) {
    const TextLine& line = lines[static_cast<std::size_t>(i)];
    drawLine(sheet, line, leftOf(line, width, style.isCentred), i * reach.pitch() + reach.up,
             style.color);
  }
  return std::move(sheet).image();
}

}  // namespace zaffo::feed
