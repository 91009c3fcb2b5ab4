#include "platform/window/SoftwareRenderer.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace zaffo::window {

namespace {

uint8_t toByte(double unit) {
  return static_cast<uint8_t>(std::lround(std::clamp(unit, 0.0, 1.0) * 255));
}

/// value * alpha / 255, rounded, for both up to 255.
int scaledBy(int value, int alpha) {
  const int product = value * alpha + 128;
  return (product + (product >> 8)) >> 8;
}

void blendRow(const uint8_t* source, int opacity, uint8_t* target, int width) {
  for (int x = 0; x < width; ++x, source += 4, target += 4) {
    const int behind = 255 - scaledBy(source[3], opacity);
    for (int c = 0; c < 4; ++c) {
      const int mixed = scaledBy(source[c], opacity) + scaledBy(target[c], behind);
      target[c] = static_cast<uint8_t>(std::min(mixed, 255));
    }
  }
}

PixelRect relativeTo(const PixelRect& rect, const PixelRect& origin) {
  return {rect.x - origin.x, rect.y - origin.y, rect.width, rect.height};
}

}  // namespace

void fillBitmap(const Bitmap& target, const CGColor& color, double opacity) {
  const double alpha = std::clamp(color.alpha * opacity, 0.0, 1.0);
  const uint8_t pixel[4] = {toByte(color.blue * alpha), toByte(color.green * alpha),
                            toByte(color.red * alpha), toByte(alpha)};
  std::vector<uint8_t> row(std::size_t{4} * static_cast<std::size_t>(target.width));
  for (std::size_t i = 0; i < row.size(); ++i) row[i] = pixel[i % 4];
  for (int y = 0; y < target.height; ++y) {
    if (pixel[3] == 255) {
      std::memcpy(target.row(y), row.data(), row.size());
    } else {
      blendRow(row.data(), 255, target.row(y), target.width);
    }
  }
}

void blendBitmap(const Bitmap& source, double opacity, const Bitmap& target) {
  for (int y = 0; y < target.height; ++y) {
    blendRow(source.row(y), toByte(opacity), target.row(y), target.width);
  }
}

void transposeBitmap(const Bitmap& source, const Bitmap& target) {
  constexpr int block = 16;  // two blocks fit the first-level cache whatever the strides
  for (int top = 0; top < source.height; top += block) {
    for (int left = 0; left < source.width; left += block) {
      const int bottom = std::min(top + block, source.height);
      const int right = std::min(left + block, source.width);
      for (int y = top; y < bottom; ++y) {
        for (int x = left; x < right; ++x) {
          std::memcpy(target.row(x) + std::ptrdiff_t{4} * y, source.row(y) + std::ptrdiff_t{4} * x,
                      4);
        }
      }
    }
  }
}

Bitmap SoftwareRenderer::scratch(std::vector<uint8_t>& memory, int width, int height) {
  const std::size_t stride = std::size_t{4} * static_cast<std::size_t>(width);
  memory.resize(stride * static_cast<std::size_t>(height));
  return {memory.data(), static_cast<std::ptrdiff_t>(stride), width, height};
}

void SoftwareRenderer::drawImage(const DrawCommand& command, const CGImage& image,
                                 const Bitmap& target) {
  Stretch stretch;
  stretch.width = command.destination.width;
  stretch.height = command.destination.height;
  stretch.part = relativeTo(command.visible, command.destination);
  const Bitmap scaled = scratch(scaled_, command.visible.width, command.visible.height);
  scaler_.scale(image, stretch, scaled);
  blendBitmap(scaled, command.opacity, target);
}

void SoftwareRenderer::drawPicture(const DrawCommand& command, const MovingPicture& picture,
                                   const Bitmap& target) {
  Stretch stretch;
  stretch.width = command.destination.width;
  stretch.height = command.destination.height;
  stretch.part = relativeTo(command.visible, command.destination);
  const int turns = picture.quarterTurns;
  const bool sideways = turns % 2 == 1;
  // A quarter turn is an exchange of rows and columns plus a flip of one direction.
  stretch.flippedX = picture.mirrored != (turns >= 2);
  stretch.flippedY = turns == 1 || turns == 2;
  if (sideways) {
    std::swap(stretch.width, stretch.height);
    std::swap(stretch.part.x, stretch.part.y);
    std::swap(stretch.part.width, stretch.part.height);
  }
  if (!sideways && command.isOpaque()) return scaler_.scale(*picture.buffer, stretch, target);

  Bitmap drawn = scratch(scaled_, stretch.part.width, stretch.part.height);
  scaler_.scale(*picture.buffer, stretch, drawn);
  if (sideways) {
    if (command.isOpaque()) return transposeBitmap(drawn, target);
    const Bitmap upright = scratch(turned_, target.width, target.height);
    transposeBitmap(drawn, upright);
    drawn = upright;
  }
  blendBitmap(drawn, command.opacity, target);
}

void SoftwareRenderer::draw(const DisplayList& list, const Bitmap& target) {
  const PixelRect whole{0, 0, target.width, target.height};
  const bool isCovered = !list.commands.empty() && list.commands.front().isOpaque() &&
                         list.commands.front().visible.contains(whole);
  if (!isCovered) fillBitmap(target, {0, 0, 0, 1}, 1);
  for (const DrawCommand& whole_command : list.commands) {
    DrawCommand command = whole_command;
    command.visible = command.visible.intersection(whole);
    if (command.visible.isEmpty()) continue;
    const Bitmap part = target.part(command.visible);
    if (const auto* color = std::get_if<CGColor>(&command.content)) {
      fillBitmap(part, *color, command.opacity);
    } else if (const auto* image = std::get_if<CGImagePtr>(&command.content)) {
      drawImage(command, **image, part);
    } else if (const auto* picture = std::get_if<MovingPicture>(&command.content)) {
      drawPicture(command, *picture, part);
    }
  }
}

}  // namespace zaffo::window
