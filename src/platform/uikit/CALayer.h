#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/coremedia/CVPixelBuffer.h"
#include "platform/uikit/CGImage.h"
#include "platform/uikit/Geometry.h"

namespace zaffo {

struct CGColor {
  double red = 0, green = 0, blue = 0, alpha = 0;  ///< 0 to 1, alpha not premultiplied
  bool operator==(const CGColor&) const = default;
};

/// A moving picture that a layer shows now, and where.
struct LayerPicture {
  CVPixelBufferPtr buffer;
  /// Where the clean aperture goes, in the layer's bounds, after `quarterTurns` and `mirrored`.
  CGRect destination;
  int quarterTurns = 0;   ///< clockwise turns of 90 degrees, 0 to 3
  bool mirrored = false;  ///< flipped left to right before it is turned
};

/// A rectangle of the picture tree: a colour, a still image, a moving picture, and sublayers above
/// them in order. A layer has one superlayer. Thread: main.
class ZAFFO_EXPORT CALayer : public std::enable_shared_from_this<CALayer> {
 public:
  [[nodiscard]] static std::shared_ptr<CALayer> create();
  virtual ~CALayer();
  CALayer(const CALayer&) = delete;
  CALayer& operator=(const CALayer&) = delete;

  [[nodiscard]] CGRect frame() const;   ///< in the superlayer's coordinates
  void setFrame(CGRect frame);
  [[nodiscard]] CGRect bounds() const;  ///< in its own coordinates
  void setBounds(CGRect bounds);

  [[nodiscard]] std::shared_ptr<CALayer> superlayer() const;
  [[nodiscard]] const std::vector<std::shared_ptr<CALayer>>& sublayers() const;
  /// Adds on top, taking it out of its present superlayer first.
  void addSublayer(const std::shared_ptr<CALayer>& layer);
  void insertSublayer(const std::shared_ptr<CALayer>& layer, std::size_t index);
  void removeFromSuperlayer();

  [[nodiscard]] CGColor backgroundColor() const;
  void setBackgroundColor(CGColor color);
  [[nodiscard]] const CGImagePtr& contents() const;
  /// The image is drawn over the background, mapped by contentsGravity.
  void setContents(CGImagePtr image);
  enum class Gravity { Resize, ResizeAspect, ResizeAspectFill, Center };
  [[nodiscard]] Gravity contentsGravity() const;
  void setContentsGravity(Gravity gravity);
  [[nodiscard]] bool isHidden() const;
  void setHidden(bool hidden);
  [[nodiscard]] double opacity() const;
  void setOpacity(double opacity);
  [[nodiscard]] bool masksToBounds() const;
  void setMasksToBounds(bool masks);

  /// Tells the window that what this layer shows has changed. Cheap; merged until the next draw.
  void setNeedsDisplay();

  /// The moving picture to show at host time `hostNanoseconds` (TimeSource); none for a plain layer.
  [[nodiscard]] virtual std::optional<LayerPicture> picture(int64_t hostNanoseconds);

  /// Told on the main thread after `buffer`, got from picture(), was put on screen.
  virtual void didPresent(const CVPixelBufferPtr& buffer, int64_t hostNanoseconds);

  /// For the window that shows this layer as its root: told when anything below needs drawing.
  void setDisplayRequestHandler(std::function<void()> handler);

 protected:
  CALayer();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace zaffo
