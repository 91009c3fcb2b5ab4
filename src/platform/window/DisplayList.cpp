// SPDX-License-Identifier: Apache-2.0
#include "platform/window/DisplayList.h"

#include <algorithm>
#include <cmath>

namespace zaffo::window {

namespace {

/// Far beyond any window, near enough that sums of two never overflow.
constexpr double coordinateLimit = 1 << 24;

int toPixel(double points, double scale) {
  const double pixels = points * scale;
  if (std::isnan(pixels)) return 0;
  return static_cast<int>(std::lround(std::clamp(pixels, -coordinateLimit, coordinateLimit)));
}

PixelRect toPixels(CGRect rect, double scale) {
  const int left = toPixel(rect.origin.x, scale), top = toPixel(rect.origin.y, scale);
  return {left, top, toPixel(rect.origin.x + rect.size.width, scale) - left,
          toPixel(rect.origin.y + rect.size.height, scale) - top};
}

CGRect imageRect(CGSize image, CGRect bounds, CALayer::Gravity gravity, double scale) {
  if (gravity == CALayer::Gravity::Resize) return bounds;
  const double horizontal = bounds.size.width / image.width;
  const double vertical = bounds.size.height / image.height;
  double factor = 1 / scale;  // Center: a pixel of the image on a pixel of the screen
  if (gravity == CALayer::Gravity::ResizeAspect) factor = std::min(horizontal, vertical);
  if (gravity == CALayer::Gravity::ResizeAspectFill) factor = std::max(horizontal, vertical);
  const CGSize size{image.width * factor, image.height * factor};
  return {{bounds.origin.x + (bounds.size.width - size.width) / 2,
           bounds.origin.y + (bounds.size.height - size.height) / 2},
          size};
}

/// One walk over the tree.
class Walk {
 public:
  Walk(DisplayListAndPresentations& result, double scale, int64_t hostNanoseconds)
      : result_(result), scale_(scale), hostNanoseconds_(hostNanoseconds) {}

  /// `offset` takes the layer's own coordinates to the window's, in points.
  void visit(const std::shared_ptr<CALayer>& layer, CGPoint offset, PixelRect clip,
             double opacity) {
    opacity *= std::clamp(layer->opacity(), 0.0, 1.0);
    if (layer->isHidden() || !(opacity > 0)) return;
    const CGRect bounds = layer->bounds();
    const CGRect inWindow = moved(bounds, offset);
    if (layer->masksToBounds()) clip = clip.intersection(toPixels(inWindow, scale_));
    if (clip.isEmpty()) return;

    if (const CGColor color = layer->backgroundColor(); color.alpha > 0) {
      add(inWindow, clip, opacity, color);
    }
    addContents(*layer, inWindow, clip, opacity);
    addPicture(layer, inWindow, offset, clip, opacity);
    for (const auto& sublayer : layer->sublayers()) {
      const CGPoint position = sublayer->frame().origin, own = sublayer->bounds().origin;
      visit(sublayer, {offset.x + position.x - own.x, offset.y + position.y - own.y}, clip,
            opacity);
    }
  }

 private:
  static CGRect moved(CGRect rect, CGPoint offset) {
    return {{rect.origin.x + offset.x, rect.origin.y + offset.y}, rect.size};
  }

  void addContents(const CALayer& layer, CGRect inWindow, PixelRect clip, double opacity) {
    const CGImagePtr& image = layer.contents();
    if (CGImageGetWidth(image) <= 0 || CGImageGetHeight(image) <= 0) return;
    const CGSize size{static_cast<double>(image->width()), static_cast<double>(image->height())};
    add(imageRect(size, inWindow, layer.contentsGravity(), scale_), clip, opacity, image);
  }

  void addPicture(const std::shared_ptr<CALayer>& layer, CGRect inWindow, CGPoint offset,
                  PixelRect clip, double opacity) {
    // A layer outside the window is not asked: asking makes its player let earlier frames go and
    // decode on.
    if (toPixels(inWindow, scale_).intersection(clip).isEmpty()) return;
    const std::optional<LayerPicture> picture = layer->picture(hostNanoseconds_);
    if (!picture || !picture->buffer) return;
    const CVPixelBuffer& buffer = *picture->buffer;
    if (buffer.cropWidth <= 0 || buffer.cropHeight <= 0) return;
    const MovingPicture content{picture->buffer, picture->quarterTurns & 3, picture->mirrored};
    if (add(moved(picture->destination, offset), clip, opacity, content)) {
      result_.presentations.push_back({layer, picture->buffer});
    }
  }

  template <class Content>
  bool add(CGRect inWindow, PixelRect clip, double opacity, Content content) {
    const PixelRect destination = toPixels(inWindow, scale_);
    const PixelRect visible = destination.intersection(clip);
    if (visible.isEmpty()) return false;
    result_.list.commands.push_back({destination, visible, opacity, std::move(content)});
    return true;
  }

  DisplayListAndPresentations& result_;
  const double scale_;
  const int64_t hostNanoseconds_;
};

/// A thumbnail under its video, a page's background under both: drawn for nothing.
void removeCovered(std::vector<DrawCommand>& commands) {
  std::vector<PixelRect> opaque;
  const auto isCovered = [&](const DrawCommand& command) {
    return std::any_of(opaque.begin(), opaque.end(),
                       [&](const PixelRect& rect) { return rect.contains(command.visible); });
  };
  auto kept = commands.end();
  for (auto command = commands.end(); command != commands.begin();) {
    --command;
    if (isCovered(*command)) continue;
    if (command->isOpaque()) opaque.push_back(command->visible);
    --kept;
    if (kept != command) *kept = std::move(*command);
  }
  commands.erase(commands.begin(), kept);
}

}  // namespace

bool DrawCommand::isOpaque() const {
  if (opacity < 1) return false;
  if (const auto* color = std::get_if<CGColor>(&content)) return color->alpha >= 1;
  if (const auto* moving = std::get_if<MovingPicture>(&content)) {
    return moving->buffer->format != CVPixelFormat::BGRA;
  }
  return false;
}

DisplayListAndPresentations makeDisplayList(const std::shared_ptr<CALayer>& root, int width,
                                            int height, double scale, int64_t hostNanoseconds) {
  DisplayListAndPresentations result;
  result.list.width = width;
  result.list.height = height;
  const CGPoint origin = root->bounds().origin;
  Walk(result, scale, hostNanoseconds)
      .visit(root, {-origin.x, -origin.y}, {0, 0, width, height}, 1);
  removeCovered(result.list.commands);
  return result;
}

}  // namespace zaffo::window
