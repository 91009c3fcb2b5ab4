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

/// A rectangle of the picture tree: from back to front a colour, a still image, a moving picture,
/// and the sublayers in order. A layer holds its sublayers and knows its superlayer weakly; it has
/// one at most. Subclasses may use every operation in their constructor.
/// Thread: main. A layer that is in no tree may be made and destroyed on any thread.
class ZAFFO_EXPORT CALayer : public std::enable_shared_from_this<CALayer> {
 public:
  [[nodiscard]] static std::shared_ptr<CALayer> create();
  virtual ~CALayer();
  CALayer(const CALayer&) = delete;
  CALayer& operator=(const CALayer&) = delete;

  [[nodiscard]] CGRect frame() const;  ///< in the superlayer's coordinates
  /// Sets the size of the bounds too; their origin stays.
  void setFrame(CGRect frame);
  /// In its own coordinates: those in which sublayers lie. The origin is what is seen at the upper
  /// left corner of the frame.
  [[nodiscard]] CGRect bounds() const;
  /// A change of size keeps the middle of the frame where it is.
  void setBounds(CGRect bounds);

  /// Null when there is none.
  [[nodiscard]] std::shared_ptr<CALayer> superlayer() const;
  /// Back to front.
  [[nodiscard]] const std::vector<std::shared_ptr<CALayer>>& sublayers() const;
  /// Adds on top, taking it out of its present superlayer first.
  /// Null changes nothing; putting a layer into itself or into one below it is a fatal error.
  void addSublayer(const std::shared_ptr<CALayer>& layer);
  /// As addSublayer, to `index` among the sublayers as they are without `layer`; on top when there
  /// are fewer.
  void insertSublayer(const std::shared_ptr<CALayer>& layer, std::size_t index);
  /// Changes nothing when there is no superlayer. The superlayer's reference is given up.
  void removeFromSuperlayer();

  /// Transparent at first.
  [[nodiscard]] CGColor backgroundColor() const;
  void setBackgroundColor(CGColor color);
  [[nodiscard]] const CGImagePtr& contents() const;
  /// The image is drawn over the background, mapped by contentsGravity.
  void setContents(CGImagePtr image);
  enum class Gravity {
    Resize,            ///< stretched to the bounds
    ResizeAspect,      ///< as great as fits the bounds, in the middle
    ResizeAspectFill,  ///< as small as covers the bounds, in the middle
    Center,            ///< one point a pixel, in the middle
  };
  /// Resize at first.
  [[nodiscard]] Gravity contentsGravity() const;
  void setContentsGravity(Gravity gravity);
  /// Whether this layer and all below it are left out.
  [[nodiscard]] bool isHidden() const;
  void setHidden(bool hidden);
  /// 0 to 1, multiplied into all below; 1 at first.
  [[nodiscard]] double opacity() const;
  void setOpacity(double opacity);  ///< limited to 0 to 1; NaN counts as 0
  /// Whether sublayers are cut off at the bounds; false at first.
  [[nodiscard]] bool masksToBounds() const;
  void setMasksToBounds(bool masks);

  /// Tells the root's display request handler that what this layer shows has changed; every setter
  /// that changes something does so by itself. Nothing is told while this layer or one above it is
  /// hidden or fully transparent. Costs nanoseconds: a walk to the root and one call, and
  /// requests are merged until the next draw by the window there.
  void setNeedsDisplay();

  /// The moving picture to show at host time `hostNanoseconds` (TimeSource); none for a plain
  /// layer.
  [[nodiscard]] virtual std::optional<LayerPicture> picture(int64_t hostNanoseconds);

  /// Told on the main thread after `buffer`, got from picture(), was put on screen.
  virtual void didPresent(const CVPixelBufferPtr& buffer, int64_t hostNanoseconds);

  /// For the window that shows this layer as its root: told, on the main thread, each time this
  /// layer or anything visible below it asks to be drawn. It is to note that and return: it is
  /// called in the midst of changes to the tree, so it may neither draw nor change layers.
  void setDisplayRequestHandler(std::function<void()> handler);

 protected:
  CALayer();

 private:
  void requestDisplayAround();
  [[nodiscard]] bool isInvisible() const;

  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace zaffo
