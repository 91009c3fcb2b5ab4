// SPDX-License-Identifier: Apache-2.0
#include "platform/window/SoftwareRenderer.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/window/ImagePixels.h"

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

Bitmap SoftwareRenderer::scratch(int width, int height) {
  const std::size_t stride = std::size_t{4} * static_cast<std::size_t>(width);
  drawn_.resize(stride * static_cast<std::size_t>(height));
  return {drawn_.data(), static_cast<std::ptrdiff_t>(stride), width, height};
}

void SoftwareRenderer::drawPicture(const DrawCommand& command, const CVPixelBuffer& buffer,
                                   PictureLayout layout, const Bitmap& target) {
  layout.width = command.destination.width;
  layout.height = command.destination.height;
  layout.part = relativeTo(command.visible, command.destination);
  if (command.isOpaque()) return scaler_.scale(buffer, layout, target);
  const Bitmap drawn = scratch(target.width, target.height);
  scaler_.scale(buffer, layout, drawn);
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
      drawPicture(command, pixelBufferOf(**image), {}, part);
    } else if (const auto* picture = std::get_if<MovingPicture>(&command.content)) {
      PictureLayout layout;
      layout.quarterTurns = picture->quarterTurns;
      layout.mirrored = picture->mirrored;
      drawPicture(command, *picture->buffer, layout, part);
    }
  }
}

}  // namespace zaffo::window
